#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "config/temp_dir.h"
#include "config/xml_config.h"
#include "support/test_support.h"

namespace {

using tocra_test::Logged;
using tocra_test::TempDir;

enum Kind { U8, I32, F32 };

struct Key {
    const char* path;  // element path below Config
    Kind kind;
    int offset;  // worked out by hand from the packing
    double def;
    double other;  // a distinct non-default value
};

const Key kKeys[28] = {
    {"LocalMotionDetection/MotionLowGray", U8, 0, 5, 11},
    {"LocalMotionDetection/MotionHighGray", U8, 1, 20, 22},
    {"LocalMotionDetection/MotionRatio", F32, 2, 0.1f, 0.75},
    {"PostProcess/DenoiseDarkThresh", U8, 6, 64, 33},
    {"GhostRemovalMethod", I32, 7, 0, 1005},
    {"night_lumaavg", I32, 11, 15, 1006},
    {"LocalMotionCorrection", I32, 15, 3, 1007},
    {"ImageFusionMethod", I32, 19, 1, 1008},
    {"ImageFusion/PyramidTopSize", I32, 23, 1, 1009},
    {"ImageFusion/WeightCalcMethod", I32, 27, 0, 1010},
    {"ImageFusion/MinUnderExposureDiv", I32, 31, 32, 1011},
    {"ImageFusion/MaxUnderExposureDiv", I32, 35, 96, 1012},
    {"ImageFusion/MinOverExposureDiv", I32, 39, 176, 1013},
    {"ImageFusion/MaxOverExposureDiv", I32, 43, 226, 1014},
    {"ImageFusion/BlendCenter", U8, 47, 128, 44},
    {"ImageFusion/BlendSigma", F32, 48, 0.2f, 1.5},
    {"ImageFusion/MaxBrightWeight", F32, 52, 1.0, 2.25},
    {"ImageFusion/MaxDarkWeight", F32, 56, 1.0, 3.5},
    {"ImageFusion/MinDarkWeight", F32, 60, 0.05f, -0.125},
    {"ImageFusion/MinBrightWeight", F32, 64, 0.05f, 4.75},
    {"Face/AjustRatio", I32, 68, 64, 1021},
    {"Face/Margin", I32, 72, 100, -1022},
    {"Face/SmoothRadius", I32, 76, 40, 1023},
    {"Vornelid/PyramidTopSize", I32, 80, 1, 1024},
    {"Vornelid/WeightCalcMethod", I32, 84, 2, 1025},
    {"Vornelid/BlendCenter", I32, 88, -25, 70000},
    {"Vornelid/BlendSigma", F32, 92, 0.2f, 0.5},
    {"Vornelid/NoFlashWeight", U8, 96, 128, 55},
};

// The 97 bytes that the record should hold, little-endian.
struct Record {
    uint8_t b[97];
    Record() { memset(b, 0, sizeof b); }
    void Put(const Key& k, double v) {
        if (k.kind == U8) {
            b[k.offset] = static_cast<uint8_t>(static_cast<int>(v));
        } else if (k.kind == I32) {
            const int32_t i = static_cast<int32_t>(v);
            memcpy(b + k.offset, &i, 4);
        } else {
            const float f = static_cast<float>(v);
            memcpy(b + k.offset, &f, 4);
        }
    }
};

Record Defaults() {
    Record r;
    for (const Key& k : kKeys) r.Put(k, k.def);
    return r;
}

std::string Number(const Key& k, double v) {
    char buf[64];
    if (k.kind == F32)
        snprintf(buf, sizeof buf, "%g", v);
    else
        snprintf(buf, sizeof buf, "%d", static_cast<int>(v));
    return buf;
}

// Nested elements for each "A/B" path with its text, one section element
// per section name.
std::string Elements(const std::vector<std::pair<std::string, std::string>>& items) {
    std::vector<std::pair<std::string, std::string>> sections;  // name, contents
    std::string s;
    for (const auto& it : items) {
        const size_t slash = it.first.find('/');
        if (slash == std::string::npos) {
            s += "<" + it.first + ">" + it.second + "</" + it.first + ">\n";
            continue;
        }
        const std::string sec = it.first.substr(0, slash), leaf = it.first.substr(slash + 1);
        const std::string elem = "<" + leaf + ">" + it.second + "</" + leaf + ">";
        auto found = std::find_if(sections.begin(), sections.end(), [&](const auto& x) { return x.first == sec; });
        if (found == sections.end())
            sections.push_back({sec, elem});
        else
            found->second += elem;
    }
    for (const auto& sec : sections) s += "<" + sec.first + ">" + sec.second + "</" + sec.first + ">\n";
    return s;
}

// A tuning file padded to at least 200 bytes by a comment inside Config.
std::string TuningFile(const std::string& inner, bool declaration = true) {
    std::string s = declaration ? "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n" : "";
    s += "<Config>\n" + inner + "<!-- padding";
    while (s.size() < 200) s += '.';
    return s + " -->\n</Config>\n";
}

std::string ReadRepoFile(const std::string& rel) {
    std::string s;
    if (FILE* f = fopen((std::string(TOCRA_SOURCE_DIR) + "/" + rel).c_str(), "rb")) {
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, f)) > 0) s.append(buf, n);
        fclose(f);
    }
    return s;
}

// "BRIMVEL AP Version : __<version>__<Mmm dd yyyy>__<hh:mm:ss>__\n"
bool IsVersionLine(const std::string& t) {
    const std::string head = "BRIMVEL AP Version : __";
    if (t.compare(0, head.size(), head) != 0 || t.size() < head.size() + 3) return false;
    if (t.compare(t.size() - 3, 3, "__\n") != 0) return false;
    const std::string mid = t.substr(head.size(), t.size() - head.size() - 3);
    const size_t a = mid.find("__"), b = mid.rfind("__");
    if (a == std::string::npos || a == b || a == 0) return false;
    const std::string version = mid.substr(0, a), date = mid.substr(a + 2, b - a - 2), time = mid.substr(b + 2);
    if (version.find_first_not_of("0123456789.") != std::string::npos) return false;
    return date.size() == 11 && date[3] == ' ' && date[6] == ' ' && time.size() == 8 && time[2] == ':' &&
           time[5] == ':';
}

class ParseXml : public ::testing::Test {
  protected:
    void SetUp() override {
        table.Install();
        memset(out, 0xEE, sizeof out);
        handle = table.Add(out);
        // A failed load clears the process-wide reader's path, so that no
        // directory name of an earlier test is taken as already loaded.
        tagST_XML_PARSE_REQUEST reset{handle, "/nonexistent-tocra-dir/"};
        ParseXML_TocraAPI(&reset);
        tocra_test::ClearLog();
        tocra_test::ClearFlushes();
    }

    int Call(const std::string& dir) {
        tagST_XML_PARSE_REQUEST req{handle, dir.c_str()};
        return ParseXML_TocraAPI(&req);
    }

    void ExpectRecord(const Record& want) {
        for (int i = 0; i < 97; ++i) EXPECT_EQ(out[i], want.b[i]) << "byte " << i;
        for (size_t i = 97; i < sizeof out; ++i) EXPECT_EQ(out[i], 0xEE) << "written past the record at " << i;
    }

    tocra_test::HandleTable table;
    uint8_t out[128];
    uint32_t handle = 0;
};

// ---- the record ------------------------------------------------------------------

TEST_F(ParseXml, EveryKeyIsStoredAtItsOffset) {
    TempDir dir;
    std::vector<std::pair<std::string, std::string>> items;
    Record want;
    for (const Key& k : kKeys) {
        items.push_back({k.path, Number(k, k.other)});
        want.Put(k, k.other);
    }
    dir.Write("brimvel.xml", TuningFile(Elements(items)));
    ASSERT_EQ(Call(dir.dir()), TOCRA_OK);
    ExpectRecord(want);
}

TEST_F(ParseXml, DefaultsForMissingAndEmptyKeys) {
    TempDir dir;
    dir.Write("brimvel.xml", TuningFile("<Face><Margin></Margin><SmoothRadius/><AjustRatio>  </AjustRatio></Face>"
                                        "<ImageFusion><BlendSigma><!-- none --></BlendSigma></ImageFusion>"));
    ASSERT_EQ(Call(dir.dir()), TOCRA_OK);
    ExpectRecord(Defaults());
}

TEST_F(ParseXml, OnlyTheConfigElementAtTopLevelGivesEveryDefault) {
    TempDir dir;
    std::vector<std::pair<std::string, std::string>> items;
    for (const Key& k : kKeys) items.push_back({k.path, Number(k, k.other)});
    dir.Write("brimvel.xml", TuningFile(Elements(items), false));
    ASSERT_EQ(Call(dir.dir()), 0);  // loads, but "/Config/..." starts inside Config
    ExpectRecord(Defaults());
}

TEST_F(ParseXml, EightBitFieldsKeepTheLowByte) {
    TempDir dir;
    dir.Write("brimvel.xml", TuningFile(Elements({{"ImageFusion/BlendCenter", "300"},
                                                  {"Face/AjustRatio", "300"},
                                                  {"Vornelid/NoFlashWeight", "-1"},
                                                  {"PostProcess/DenoiseDarkThresh", "256"}})));
    ASSERT_EQ(Call(dir.dir()), TOCRA_OK);
    Record want = Defaults();
    want.Put(kKeys[14], 44);
    want.Put(kKeys[20], 300);
    want.Put(kKeys[27], 255);
    want.Put(kKeys[3], 0);
    ExpectRecord(want);
}

TEST_F(ParseXml, NumericReferencesTheEncodingCannotHoldStillLoad) {
    // In a comment, an attribute and texts: &#0;, a value past 10FFFF and a
    // surrogate decode to U+FFFD in UTF-8, so the file loads; "&#x31;&#x32;"
    // is "12", and "7&#0;" is "7" followed by U+FFFD, which "%d" reads as 7.
    TempDir dir;
    dir.Write("brimvel.xml",
              TuningFile("<!-- &#0; &#x110000; -->\n<Face note=\"&#1114112;&#xD800;&#0;\"><Margin>&#x31;&#x32;</Margin>"
                         "<AjustRatio>7&#0;</AjustRatio><SmoothRadius>&#xDFFF;</SmoothRadius></Face>\n"));
    ASSERT_EQ(Call(dir.dir()), TOCRA_OK);
    Record want = Defaults();
    want.Put(kKeys[20], 7);   // AjustRatio
    want.Put(kKeys[21], 12);  // Margin
    // SmoothRadius: text that "%d" cannot read leaves the value undefined;
    // this reader keeps the default for it.
    want.Put(kKeys[22], kKeys[22].def);
    ExpectRecord(want);
}

TEST_F(ParseXml, KeysMatchWithoutRegardToCase) {
    TempDir dir;
    dir.Write("brimvel.xml", TuningFile("<face><MARGIN>7</MARGIN></face><NIGHT_LUMAAVG>9</NIGHT_LUMAAVG>"));
    ASSERT_EQ(Call(dir.dir()), TOCRA_OK);
    Record want = Defaults();
    want.Put(kKeys[21], 7);
    want.Put(kKeys[5], 9);
    ExpectRecord(want);
}

TEST_F(ParseXml, RepoTuningFileGivesExactlyTheDefaults) {
    const std::string text = ReadRepoFile("data/brimvel.xml");
    ASSERT_GE(text.size(), 200u);
    EXPECT_EQ(text.compare(0, 5, "<?xml"), 0);
    TempDir dir;
    dir.Write("brimvel.xml", text);
    ASSERT_EQ(Call(dir.dir()), TOCRA_OK);
    ExpectRecord(Defaults());
    // Every key is written out in it, none is left to its default.
    XmlConfig cfg;
    ASSERT_EQ(cfg.LoadConfig(dir.file("brimvel.xml").c_str()), 1);
    for (const Key& k : kKeys) EXPECT_NE(cfg.GetString((std::string("/Config/") + k.path).c_str(), nullptr), nullptr);
}

// ---- the call ------------------------------------------------------------------------

TEST_F(ParseXml, SuccessLogsAndFlushesTheRecord) {
    TempDir dir;
    dir.Write("brimvel.xml", TuningFile(""));
    ASSERT_EQ(Call(dir.dir()), TOCRA_OK);
    const auto log = tocra_test::Log();
    ASSERT_EQ(log.size(), 4u);
    EXPECT_EQ(log[0].prio, 4);
    EXPECT_TRUE(IsVersionLine(log[0].text)) << log[0].text;
    char line[512];
    snprintf(line, sizeof line, "XML file path is [%s], the xmlInfo Addr is[%x]\n", dir.dir().c_str(), handle);
    EXPECT_TRUE(Logged(4, line));
    EXPECT_TRUE(Logged(4, "xml ImgProc_ParseXMLMfnr end, ret = 0\n"));
    EXPECT_TRUE(Logged(4, "exit func ParseXML_TocraAPI\n"));
    ASSERT_EQ(tocra_test::Flushes().size(), 1u);
    EXPECT_TRUE(tocra_test::Flushed(out, 97));
}

TEST_F(ParseXml, SecondCallWithTheSameDirectoryDoesNotReadTheFileAgain) {
    TempDir dir, other;
    dir.Write("brimvel.xml", TuningFile(Elements({{"Face/Margin", "1"}})));
    other.Write("brimvel.xml", TuningFile(Elements({{"Face/Margin", "3"}})));
    ASSERT_EQ(Call(dir.dir()), TOCRA_OK);
    EXPECT_EQ(out[72], 1);
    dir.Write("brimvel.xml", TuningFile(Elements({{"Face/Margin", "2"}})));
    ASSERT_EQ(Call(dir.dir()), TOCRA_OK);
    EXPECT_EQ(out[72], 1);  // the document loaded first
    unlink(dir.file("brimvel.xml").c_str());
    ASSERT_EQ(Call(dir.dir()), 0);  // not even opened
    ASSERT_EQ(Call(other.dir()), TOCRA_OK);
    EXPECT_EQ(out[72], 3);
}

TEST_F(ParseXml, FileThatCannotBeLoadedAnswersMinus999) {
    TempDir dir;
    const std::string small = "<?xml version=\"1.0\"?><Config><Face><Margin>5</Margin></Face></Config>";
    dir.Write("brimvel.xml", small + std::string(199 - small.size(), ' '));
    EXPECT_EQ(Call(dir.dir()), TOCRA_CONFIG_NOT_LOADED);
    EXPECT_TRUE(Logged(4, "xml XmlConfig.LoadConfig failed\n"));
    EXPECT_EQ(out[0], 0xEE);  // nothing written
    EXPECT_TRUE(tocra_test::Flushes().empty());
    dir.Write("brimvel.xml", small + std::string(200 - small.size(), ' '));
    EXPECT_EQ(Call(dir.dir()), 0);  // a failed load is not remembered
    EXPECT_EQ(out[72], 5);
    tocra_test::ClearLog();
    EXPECT_EQ(Call(dir.dir() + "missing/"), TOCRA_CONFIG_NOT_LOADED);
    EXPECT_TRUE(Logged(4, "xml XmlConfig.LoadConfig failed\n"));
    TempDir broken;
    broken.Write("brimvel.xml", TuningFile("<a></b>"));
    EXPECT_EQ(Call(broken.dir()), TOCRA_CONFIG_NOT_LOADED);
}

TEST_F(ParseXml, DirectoryLengthLimitIsClean) {
    // Directory names (with the separator) of 243 characters leave exactly
    // room for "brimvel.xml" in 255; 244 do not.
    TempDir dir;
    std::string base = dir.dir();
    const std::string sub = std::string(243 - base.size() - 1, 'd');
    const std::string fits = base + sub + "/";
    const std::string path = fits + "brimvel.xml";
    struct Cleanup {
        const std::string& dir;
        const std::string& file;
        ~Cleanup() {
            unlink(file.c_str());
            rmdir(dir.c_str());
        }
    } cleanup{fits, path};
    ASSERT_EQ(fits.size(), 243u);
    ASSERT_EQ(mkdir(fits.c_str(), 0700), 0);
    if (FILE* f = fopen(path.c_str(), "wb")) {
        const std::string t = TuningFile(Elements({{"Face/Margin", "9"}}));
        fwrite(t.data(), 1, t.size(), f);
        fclose(f);
    }
    EXPECT_EQ(Call(fits), TOCRA_OK);
    EXPECT_EQ(out[72], 9);
    EXPECT_EQ(Call(base + sub + "x/"), -999);  // 244
    EXPECT_TRUE(Logged(4, "xml XmlConfig.LoadConfig failed\n"));
    EXPECT_EQ(Call(std::string(5000, 'p') + "/"), TOCRA_CONFIG_NOT_LOADED);
}

TEST_F(ParseXml, BadRequestsAnswerMinus998) {
    EXPECT_EQ(ParseXML_TocraAPI(nullptr), TOCRA_NULL_POINTER);
    EXPECT_TRUE(Logged(6, "ParseXML_TocraAPI input param pointer is invalid\n"));
    tagST_XML_PARSE_REQUEST req{handle, nullptr};
    EXPECT_EQ(ParseXML_TocraAPI(&req), TOCRA_NULL_POINTER);
    EXPECT_EQ(tocra_test::CountLogged("ParseXML_TocraAPI input param pointer is invalid\n"), 2);
    // A handle that does not convert: checked before anything is written.
    TempDir dir;
    dir.Write("brimvel.xml", TuningFile(""));
    tocra_test::ClearLog();
    table.Break(handle);
    EXPECT_EQ(Call(dir.dir()), TOCRA_NULL_POINTER);
    EXPECT_TRUE(Logged(6, "cacheflush startAddr convert addr pointer error\n"));
    EXPECT_FALSE(Logged(4, "exit func ParseXML_TocraAPI\n"));
    EXPECT_TRUE(tocra_test::Flushes().empty());
    setIO2VAConverter(nullptr);  // no hook at all
    EXPECT_EQ(Call(dir.dir()), TOCRA_NULL_POINTER);
    for (uint8_t b : out) EXPECT_EQ(b, 0xEE);
    XmlConfig cfg;
    tocra_test::ClearLog();
    EXPECT_EQ(ImgProc_ParseXMLHdr(cfg, nullptr), TOCRA_NULL_POINTER);
    EXPECT_TRUE(Logged(6, "ImgProc_ParseXMLHdr output pointer is invalid\n"));
}

// Bytes the library holds on the platform allocator, from the blocks it
// allocated while the counting FaultInjection has been alive (the process
// allocator's own figures move with its caches).
size_t LibraryBytes() {
    size_t n = 0;
    for (const tocra_test::Block& b : tocra_test::Outstanding()) n += b.size;
    return n;
}

TEST_F(ParseXml, RepeatedLoadsKeepOnlyOneDocument) {
    const std::string text = ReadRepoFile("data/brimvel.xml");
    auto round = [&] {
        TempDir dir;
        dir.Write("brimvel.xml", text);
        EXPECT_EQ(Call(dir.dir()), TOCRA_OK);
        tocra_test::ClearLog();
        tocra_test::ClearFlushes();
    };
    const size_t outside = LibraryBytes();
    tocra_test::FaultInjection counting(tocra_test::FaultKind::kAllocation, 0);
    round();
    const size_t one = LibraryBytes() - outside;
    for (int i = 0; i < 60; ++i) round();
    const size_t after = LibraryBytes() - outside;
    // One document of this file is several kilobytes, and the last one is kept.
    EXPECT_GT(one, 2048u);
    EXPECT_EQ(after, one);
}

// ---- the reader --------------------------------------------------------------------------

class Reader : public ::testing::Test {
  protected:
    void Load(const std::string& inner) {
        path = dir.Write("t.xml", TuningFile(inner));
        ASSERT_EQ(cfg.LoadConfig(path.c_str()), 1);
    }
    TempDir dir;
    std::string path;
    XmlConfig cfg;
};

TEST_F(Reader, ValuesAndTheirDefaults) {
    Load("<A>12</A><F> 2.5e-1 </F><S>text</S><N>abc</N><Deep><Er><Key>-3</Key></Er></Deep>");
    EXPECT_EQ(cfg.GetInteger("/Config/A", 0), 12);
    EXPECT_EQ(cfg.GetInteger("/config/deep/er/KEY", 0), -3);
    EXPECT_FLOAT_EQ(cfg.GetFloat("/Config/F", 0), 0.25f);
    EXPECT_STREQ(cfg.GetString("/Config/S", "d"), "text");
    EXPECT_EQ(cfg.GetString("/Config/S", "d"), cfg.GetString("/Config/S", "d"));  // the stored text itself
    EXPECT_EQ(cfg.GetInteger("/Config/N", 77), 77);                               // not a number: the default
    EXPECT_EQ(cfg.GetInteger("Config/A", 5), 5);                                  // no leading '/'
    EXPECT_EQ(cfg.GetInteger("/Config/A/", 5), 5);
    EXPECT_EQ(cfg.GetInteger("/Config/Missing", 6), 6);
    EXPECT_EQ(cfg.GetInteger("/", 6), 6);
    EXPECT_EQ(cfg.GetInteger(nullptr, 8), 8);
    EXPECT_STREQ(cfg.GetString("/Config/Deep", "none"), "none");  // no text of its own
    // Paths of 255 characters or more do not survive the work copy.
    std::string longPath = "/Config/A";
    longPath += "/" + std::string(254 - longPath.size() - 1, 'x');
    ASSERT_EQ(longPath.size(), 254u);
    EXPECT_TRUE(cfg.SearchNode(longPath.c_str()).isEmpty());
    EXPECT_TRUE(cfg.SearchNode((longPath + "y").c_str()).isEmpty());
    EXPECT_TRUE(cfg.SearchNode(("/Config/A" + std::string(400, '/')).c_str()).isEmpty());
    // A copy shares the document.
    XmlConfig copy(cfg);
    EXPECT_EQ(copy.GetString("/Config/S", nullptr), cfg.GetString("/Config/S", nullptr));
}

TEST_F(Reader, LoadRulesAndCaching) {
    XmlConfig c;
    EXPECT_EQ(c.LoadConfig(nullptr), 0);
    EXPECT_EQ(c.LoadConfig(""), 0);
    EXPECT_EQ(c.LoadConfig(std::string(256, 'a').c_str()), 0);
    EXPECT_EQ(c.LoadConfig(dir.file("missing.xml").c_str()), 0);
    EXPECT_EQ(c.LoadConfig(dir.file("missing.xml").c_str()), 0);
    Load("<A>1</A>");
    EXPECT_EQ(cfg.LoadConfig(std::string(300, 'a').c_str()), 0);  // refused, changes nothing
    EXPECT_EQ(cfg.GetInteger("/Config/A", 0), 1);
    unlink(path.c_str());
    EXPECT_EQ(cfg.LoadConfig(path.c_str()), 1);  // cached
    EXPECT_EQ(cfg.LoadConfig(dir.file("missing.xml").c_str()), 0);
    EXPECT_EQ(cfg.GetInteger("/Config/A", 4), 4);  // a failed load empties the reader
}

TEST_F(Reader, VectorReaders) {
    Load("<V> 1 -2\n 3\t40000 </V><F>0.5 -1e2 x 7</F><E/>");
    int iv[5] = {9, 9, 9, 9, 9};
    EXPECT_EQ(cfg.GetVectorInt("/Config/V", iv, 5), 1);  // four values: the fifth stays
    EXPECT_EQ(iv[0], 1);
    EXPECT_EQ(iv[1], -2);
    EXPECT_EQ(iv[2], 3);
    EXPECT_EQ(iv[3], 40000);
    EXPECT_EQ(iv[4], 9);
    short sv[4] = {5, 5, 5, 5};
    EXPECT_EQ(cfg.GetVectorShort("/Config/V", sv, 4), 1);  // 40000 does not fit a short
    EXPECT_EQ(sv[2], 3);
    EXPECT_EQ(sv[3], 5);
    unsigned int uv[2] = {0, 0};
    EXPECT_EQ(cfg.GetVectorUnsignedInt("/Config/V", uv, 1), 1);
    EXPECT_EQ(uv[0], 1u);
    EXPECT_EQ(uv[1], 0u);
    float fv[4] = {0, 0, 0, 0};
    EXPECT_EQ(cfg.GetVectorFloat("/Config/F", fv, 4), 1);
    EXPECT_FLOAT_EQ(fv[0], 0.5f);
    EXPECT_FLOAT_EQ(fv[1], -100.0f);
    EXPECT_FLOAT_EQ(fv[2], 0.0f);  // "x" stops the reading
    EXPECT_EQ(cfg.GetVectorInt("/Config/E", iv, 2), 0);
    EXPECT_EQ(cfg.GetVectorInt("/Config/Missing", iv, 2), 0);
    EXPECT_EQ(cfg.GetVectorInt("/Config/V", nullptr, 2), 0);
    EXPECT_EQ(cfg.GetVectorFloat("/Config/F", fv, -1), 0);
    EXPECT_EQ(cfg.GetVectorInt("/Config/V", iv, 0), 1);
}

// The values come out as a standard input string stream gives them: the
// stream itself is the peer, on texts at the edges of each type's grammar.
template <typename T>
std::vector<T> FromStream(const std::string& text, size_t count, T fill) {
    std::vector<T> v(count, fill);
    std::istringstream in(text);
    for (size_t i = 0; i < count; ++i) {
        T x;
        if (!(in >> x)) break;
        v[i] = x;
    }
    return v;
}

template <typename T>
bool SameBytes(const std::vector<T>& a, const std::vector<T>& b) {
    return a.size() == b.size() && memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0;
}

TEST_F(Reader, VectorReadersReadAsTheStandardStreamDoes) {
    const std::vector<std::string> texts = {"1 -2 3",
                                            "-0 +7 +-3",
                                            "1,2 3",
                                            "1-2-3",
                                            "12abc 4",
                                            "007 08.50 9",
                                            "\v3\f4",
                                            "2147483647 -2147483648 2147483648",
                                            "-2147483649 5",
                                            "32767 -32768 32768",
                                            "-32769 1",
                                            "4294967295 -1 -4294967295",
                                            "4294967296 1",
                                            "99999999999999999999999 1",
                                            "-99999999999999999999 1",
                                            "0x1p3 5",
                                            "-0x10 2",
                                            "00x1 2",
                                            "1e 2",
                                            "1e+ 3",
                                            "1E5 2e-3",
                                            "1.5.3",
                                            ".5 -.5e1",
                                            ". 1",
                                            "5. 6",
                                            "e5 1",
                                            ".e1 2",
                                            "1e39 2",
                                            "-1e39 2",
                                            "1e-50 4",
                                            "3.4028235e38 1",
                                            "nan 1",
                                            "inf 2",
                                            "-inf 2",
                                            "+ 1",
                                            "- 1",
                                            "0.000000000000000000000000000000000000000000001 7",
                                            "1e5e5 2",
                                            "12.5e+2.5",
                                            "340282356779733661637539395458142568448 1",
                                            "-0.0 0"};
    std::string doc;
    for (size_t i = 0; i < texts.size(); ++i)
        doc += "<T" + std::to_string(i) + ">" + texts[i] + "</T" + std::to_string(i) + ">";
    Load(doc);
    constexpr size_t kCount = 5;
    for (size_t i = 0; i < texts.size(); ++i) {
        const std::string key = "/Config/T" + std::to_string(i);
        const char* stored = cfg.GetString(key.c_str(), nullptr);
        ASSERT_NE(stored, nullptr) << key;
        const std::string text = stored;
        std::vector<short> sv(kCount, 111);
        EXPECT_EQ(cfg.GetVectorShort(key.c_str(), sv.data(), kCount), 1);
        EXPECT_TRUE(SameBytes(sv, FromStream<short>(text, kCount, 111))) << "short: " << text;
        std::vector<int> iv(kCount, 111);
        EXPECT_EQ(cfg.GetVectorInt(key.c_str(), iv.data(), kCount), 1);
        EXPECT_TRUE(SameBytes(iv, FromStream<int>(text, kCount, 111))) << "int: " << text;
        std::vector<unsigned int> uv(kCount, 111);
        EXPECT_EQ(cfg.GetVectorUnsignedInt(key.c_str(), uv.data(), kCount), 1);
        EXPECT_TRUE(SameBytes(uv, FromStream<unsigned int>(text, kCount, 111))) << "unsigned: " << text;
        std::vector<float> fv(kCount, 111.0f);
        EXPECT_EQ(cfg.GetVectorFloat(key.c_str(), fv.data(), kCount), 1);
        EXPECT_TRUE(SameBytes(fv, FromStream<float>(text, kCount, 111.0f))) << "float: " << text;
    }
    // Hand-worked: what the stream's rules give on a few of them.
    unsigned int u[3] = {0, 0, 0};
    cfg.GetVectorUnsignedInt("/Config/T11", u, 3);  // "4294967295 -1 -4294967295"
    EXPECT_EQ(u[0], 4294967295u);
    EXPECT_EQ(u[1], 4294967295u);  // a minus sign wraps
    EXPECT_EQ(u[2], 1u);
    float f[3] = {9, 9, 9};
    cfg.GetVectorFloat("/Config/T15", f, 3);  // "0x1p3 5": "0" and then 'x' stops the reading
    EXPECT_EQ(f[0], 0.0f);
    EXPECT_EQ(f[1], 9.0f);
    int i3[3] = {9, 9, 9};
    cfg.GetVectorInt("/Config/T3", i3, 3);  // "1-2-3"
    EXPECT_EQ(i3[0], 1);
    EXPECT_EQ(i3[1], -2);
    EXPECT_EQ(i3[2], -3);
}

}  // namespace
