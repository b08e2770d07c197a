// XmlConfig: path lookups over the loaded tuning file, and the mapping of
// its keys onto the packed configuration record.
#include "config/xml_config.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "config/xml_internal.h"
#include "frame/log.h"

XmlConfig::XmlConfig() : m_root(XMLNode::emptyNode()) { memset_s(m_path, sizeof m_path, 0, sizeof m_path); }

XmlConfig::~XmlConfig() = default;

XmlConfig::XmlConfig(const XmlConfig& other) : m_root(other.m_root) { memcpy(m_path, other.m_path, sizeof m_path); }

XmlConfig& XmlConfig::operator=(const XmlConfig& other) {
    m_root = other.m_root;
    memmove(m_path, other.m_path, sizeof m_path);
    return *this;
}

int XmlConfig::LoadConfig(const char* path) {
    bool noMemory;
    return Load(path, &noMemory);
}

int XmlConfig::Load(const char* path, bool* noMemory) {
    *noMemory = false;
    if (path == nullptr || strnlen(path, sizeof m_path) > sizeof m_path - 1) return 0;
    if (strcmp(path, m_path) == 0) return m_root.isEmpty() ? 0 : 1;  // loaded already: not read again
    // Forgotten before reading: a read that runs out of memory leaves
    // nothing loaded, and the next call with this path reads the file again.
    m_root = XMLNode::emptyNode();
    memset_s(m_path, sizeof m_path, 0, sizeof m_path);
    m_root = tocra_xml::OpenFile(path, nullptr, noMemory);
    if (m_root.isEmpty()) return 0;
    strcpy_s(m_path, sizeof m_path, path);
    return 1;
}

XMLNode XmlConfig::SearchNode(const char* path) {
    if (path == nullptr || path[0] != '/' || strnlen(path, 257) >= 257) return XMLNode::emptyNode();
    // Paths of 255 characters or more do not survive this copy.
    char work[256];
    if (strncpy_s(work, 255, path, 255) != 0) return XMLNode::emptyNode();
    char* component = work + 1;
    XMLNode node = m_root;
    for (;;) {
        if (node.isEmpty()) return node;
        char* slash = strchr(component, '/');
        if (slash == nullptr) return node.getChildNode(component, static_cast<int*>(nullptr));
        *slash = '\0';
        node = node.getChildNode(component, static_cast<int*>(nullptr));
        component = slash + 1;
    }
}

const char* XmlConfig::FirstText(const char* path) {
    XMLNode node = SearchNode(path);
    return node.isEmpty() ? nullptr : node.getText(0);
}

int XmlConfig::GetInteger(const char* path, int def) {
    const char* text = FirstText(path);
    if (text == nullptr) return def;
    int v = 0;
    // Text that does not read as a number gives the default.
    return sscanf_s(text, "%d", &v) == 1 ? v : def;
}

float XmlConfig::GetFloat(const char* path, float def) {
    const char* text = FirstText(path);
    if (text == nullptr) return def;
    float v = 0.0f;
    return sscanf_s(text, "%f", &v) == 1 ? v : def;
}

const char* XmlConfig::GetString(const char* path, const char* def) {
    const char* text = FirstText(path);
    return text ? text : def;
}

namespace {

// Values are taken as a standard input stream in the "C" locale takes them
// with operator>>: white space skipped, then the longest prefix of the
// number's grammar. A value that does not read, or lies outside its type,
// ends the reading; the next value starts where the last one stopped.

inline bool IsStreamSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
inline bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Integers: optional sign and decimal digits. An unsigned type takes a
// minus sign by wrapping the magnitude (as the stream does); a signed one
// must hold the value.
template <typename T>
bool ReadInteger(const char** text, T* out) {
    const char* p = *text;
    while (IsStreamSpace(*p)) ++p;
    const bool negative = *p == '-';
    if (*p == '-' || *p == '+') ++p;
    const unsigned long long limit =
        std::numeric_limits<T>::is_signed
            ? (negative ? static_cast<unsigned long long>(std::numeric_limits<T>::max()) + 1
                        : static_cast<unsigned long long>(std::numeric_limits<T>::max()))
            : static_cast<unsigned long long>(std::numeric_limits<T>::max());
    unsigned long long magnitude = 0;
    bool overflow = false, digits = false;
    for (; IsDigit(*p); ++p) {
        digits = true;
        const unsigned d = static_cast<unsigned>(*p - '0');
        if (magnitude > (limit - d) / 10)
            overflow = true;
        else
            magnitude = magnitude * 10 + d;
    }
    *text = p;
    if (!digits || overflow) return false;
    // Two's complement wrap, as the stream computes -magnitude in T's width.
    *out = static_cast<T>(negative ? 0ULL - magnitude : magnitude);
    return true;
}

// Floats: the stream gathers an optional sign, digits with at most one
// decimal point, and an exponent ('e' or 'E' after at least one digit, an
// optional sign, digits), then converts what it gathered as a whole, which
// must read completely and stay finite. strtof reads the same span; where it
// would read further (a hexadecimal "0x..."), the span is a run of zeros.
bool ReadFloat(const char** text, float* out) {
    const char* p = *text;
    while (IsStreamSpace(*p)) ++p;
    const char* start = p;
    if (*p == '-' || *p == '+') ++p;
    bool mantissa = false, point = false, exponent = false;
    for (;; ++p) {
        if (IsDigit(*p)) {
            mantissa = true;
        } else if (*p == '.' && !point && !exponent) {
            point = true;
        } else if ((*p == 'e' || *p == 'E') && !exponent && mantissa) {
            exponent = true;
            if (p[1] == '+' || p[1] == '-') ++p;
        } else {
            break;
        }
    }
    *text = p;
    if (p == start) return false;
    char* end = nullptr;
    float v = strtof(start, &end);
    if (end > p) {
        if (!mantissa) return false;
        v = *start == '-' ? -0.0f : 0.0f;
    } else if (end != p) {
        return false;
    }
    if (v == std::numeric_limits<float>::infinity() || v == -std::numeric_limits<float>::infinity()) return false;
    *out = v;
    return true;
}

inline bool ReadValue(const char** text, short* out) { return ReadInteger(text, out); }
inline bool ReadValue(const char** text, int* out) { return ReadInteger(text, out); }
inline bool ReadValue(const char** text, unsigned int* out) { return ReadInteger(text, out); }
inline bool ReadValue(const char** text, float* out) { return ReadFloat(text, out); }

template <typename T>
int ReadVector(const char* text, T* out, int count) {
    if (text == nullptr) return 0;
    for (int i = 0; i < count; ++i) {
        T v;
        if (!ReadValue(&text, &v)) break;
        out[i] = v;
    }
    return 1;
}

}  // namespace

int XmlConfig::GetVectorShort(const char* path, short* out, int count) {
    if (out == nullptr || count < 0) return 0;
    return ReadVector(FirstText(path), out, count);
}

int XmlConfig::GetVectorInt(const char* path, int* out, int count) {
    if (out == nullptr || count < 0) return 0;
    return ReadVector(FirstText(path), out, count);
}

int XmlConfig::GetVectorUnsignedInt(const char* path, unsigned int* out, int count) {
    if (out == nullptr || count < 0) return 0;
    return ReadVector(FirstText(path), out, count);
}

int XmlConfig::GetVectorFloat(const char* path, float* out, int count) {
    if (out == nullptr || count < 0) return 0;
    return ReadVector(FirstText(path), out, count);
}

// ---- the configuration record -------------------------------------------------

namespace {

enum class Kind { U8, I32, F32 };

struct KeyField {
    const char* key;
    Kind kind;
    size_t offset;
    float def;  // exact for every default (small integers, 0.05, 0.1, 0.2, 1.0)
};

#define TOCRA_FIELD(key, kind, field, def) \
    { key, Kind::kind, offsetof(_stXmlConfigInfoHdr, field), def }

// In record order; each field takes the last component of its key's name.
const KeyField kFields[] = {
    TOCRA_FIELD("/Config/LocalMotionDetection/MotionLowGray", U8, MotionLowGray, 5),
    TOCRA_FIELD("/Config/LocalMotionDetection/MotionHighGray", U8, MotionHighGray, 20),
    TOCRA_FIELD("/Config/LocalMotionDetection/MotionRatio", F32, MotionRatio, 0.1f),
    TOCRA_FIELD("/Config/PostProcess/DenoiseDarkThresh", U8, DenoiseDarkThresh, 64),
    TOCRA_FIELD("/Config/GhostRemovalMethod", I32, GhostRemovalMethod, 0),
    TOCRA_FIELD("/Config/night_lumaavg", I32, night_lumaavg, 15),
    TOCRA_FIELD("/Config/LocalMotionCorrection", I32, LocalMotionCorrection, 3),
    TOCRA_FIELD("/Config/ImageFusionMethod", I32, ImageFusionMethod, 1),
    TOCRA_FIELD("/Config/ImageFusion/PyramidTopSize", I32, PyramidTopSize, 1),
    TOCRA_FIELD("/Config/ImageFusion/WeightCalcMethod", I32, WeightCalcMethod, 0),
    TOCRA_FIELD("/Config/ImageFusion/MinUnderExposureDiv", I32, MinUnderExposureDiv, 32),
    TOCRA_FIELD("/Config/ImageFusion/MaxUnderExposureDiv", I32, MaxUnderExposureDiv, 96),
    TOCRA_FIELD("/Config/ImageFusion/MinOverExposureDiv", I32, MinOverExposureDiv, 176),
    TOCRA_FIELD("/Config/ImageFusion/MaxOverExposureDiv", I32, MaxOverExposureDiv, 226),
    TOCRA_FIELD("/Config/ImageFusion/BlendCenter", U8, BlendCenter, 128),
    TOCRA_FIELD("/Config/ImageFusion/BlendSigma", F32, BlendSigma, 0.2f),
    TOCRA_FIELD("/Config/ImageFusion/MaxBrightWeight", F32, MaxBrightWeight, 1.0f),
    TOCRA_FIELD("/Config/ImageFusion/MaxDarkWeight", F32, MaxDarkWeight, 1.0f),
    TOCRA_FIELD("/Config/ImageFusion/MinDarkWeight", F32, MinDarkWeight, 0.05f),
    TOCRA_FIELD("/Config/ImageFusion/MinBrightWeight", F32, MinBrightWeight, 0.05f),
    TOCRA_FIELD("/Config/Face/AjustRatio", I32, AjustRatio, 64),
    TOCRA_FIELD("/Config/Face/Margin", I32, Margin, 100),
    TOCRA_FIELD("/Config/Face/SmoothRadius", I32, SmoothRadius, 40),
    TOCRA_FIELD("/Config/Vornelid/PyramidTopSize", I32, VornelidPyramidTopSize, 1),
    TOCRA_FIELD("/Config/Vornelid/WeightCalcMethod", I32, VornelidWeightCalcMethod, 2),
    TOCRA_FIELD("/Config/Vornelid/BlendCenter", I32, VornelidBlendCenter, -25),
    TOCRA_FIELD("/Config/Vornelid/BlendSigma", F32, VornelidBlendSigma, 0.2f),
    TOCRA_FIELD("/Config/Vornelid/NoFlashWeight", U8, NoFlashWeight, 128),
};

#undef TOCRA_FIELD

static_assert(sizeof kFields / sizeof kFields[0] == 28, "one row per field of the record");

}  // namespace

extern "C" int ImgProc_ParseXMLHdr(XmlConfig cfg, _stXmlConfigInfoHdr* out) {
    if (out == nullptr) {
        TOCRA_LOGE("ImgProc_ParseXMLHdr output pointer is invalid\n");
        return TOCRA_NULL_POINTER;
    }
    unsigned char* base = reinterpret_cast<unsigned char*>(out);
    for (const KeyField& f : kFields) {
        switch (f.kind) {
            case Kind::U8: {
                // Only the low 8 bits of the integer are kept.
                const uint8_t v = static_cast<uint8_t>(cfg.GetInteger(f.key, static_cast<int>(f.def)));
                base[f.offset] = v;
                break;
            }
            case Kind::I32: {
                const int32_t v = cfg.GetInteger(f.key, static_cast<int>(f.def));
                memcpy(base + f.offset, &v, sizeof v);
                break;
            }
            case Kind::F32: {
                const float v = cfg.GetFloat(f.key, f.def);
                memcpy(base + f.offset, &v, sizeof v);
                break;
            }
        }
    }
    return 0;
}
