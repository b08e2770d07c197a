// The tuning file: ParseXML_TocraAPI reads "<dir>brimvel.xml" into the packed
// 97-byte record that the fusion stages consume.
#include <chrono>
#include <cstring>

#include "stages.h"
#include "util.h"

namespace demo {

Config ReadConfig(const std::string& dir, LibraryLog& log) {
    Config c;
    c.file = dir + "brimvel.xml";
    GraphicBuffer record(sizeof(_stXmlConfigInfoHdr));

    tagST_XML_PARSE_REQUEST request;
    request.xmlInfo = record.handle();
    request.path = dir.c_str();  // a folder, ending with '/'

    const auto start = std::chrono::steady_clock::now();
    c.call.status = CallLogged(log, &c.call.errors, [&] { return ParseXML_TocraAPI(&request); });
    c.call.ms = MsSince(start);
    if (c.call.status == TOCRA_OK) memcpy(&c.record, record.data(), sizeof c.record);
    return c;
}

std::vector<std::pair<std::string, std::string>> ConfigFields(const _stXmlConfigInfoHdr& r) {
    // The record is packed: copy each field out before formatting it.
    auto u8 = [](uint8_t v) { return std::to_string(v); };
    auto i32 = [](int32_t v) { return std::to_string(v); };
    auto f32 = [](float v) { return cv::format("%g", static_cast<double>(v)); };
    return {
        {"MotionLowGray", u8(r.MotionLowGray)},
        {"MotionHighGray", u8(r.MotionHighGray)},
        {"MotionRatio", f32(r.MotionRatio)},
        {"DenoiseDarkThresh", u8(r.DenoiseDarkThresh)},
        {"GhostRemovalMethod", i32(r.GhostRemovalMethod)},
        {"night_lumaavg", i32(r.night_lumaavg)},
        {"LocalMotionCorrection", i32(r.LocalMotionCorrection)},
        {"ImageFusionMethod", i32(r.ImageFusionMethod)},
        {"PyramidTopSize", i32(r.PyramidTopSize)},
        {"WeightCalcMethod", i32(r.WeightCalcMethod)},
        {"MinUnderExposureDiv", i32(r.MinUnderExposureDiv)},
        {"MaxUnderExposureDiv", i32(r.MaxUnderExposureDiv)},
        {"MinOverExposureDiv", i32(r.MinOverExposureDiv)},
        {"MaxOverExposureDiv", i32(r.MaxOverExposureDiv)},
        {"BlendCenter", u8(r.BlendCenter)},
        {"BlendSigma", f32(r.BlendSigma)},
        {"MaxBrightWeight", f32(r.MaxBrightWeight)},
        {"MaxDarkWeight", f32(r.MaxDarkWeight)},
        {"MinDarkWeight", f32(r.MinDarkWeight)},
        {"MinBrightWeight", f32(r.MinBrightWeight)},
        {"AjustRatio", i32(r.AjustRatio)},
        {"Margin", i32(r.Margin)},
        {"SmoothRadius", i32(r.SmoothRadius)},
        {"VornelidPyramidTopSize", i32(r.VornelidPyramidTopSize)},
        {"VornelidWeightCalcMethod", i32(r.VornelidWeightCalcMethod)},
        {"VornelidBlendCenter", i32(r.VornelidBlendCenter)},
        {"VornelidBlendSigma", f32(r.VornelidBlendSigma)},
        {"NoFlashWeight", u8(r.NoFlashWeight)},
    };
}

}  // namespace demo
