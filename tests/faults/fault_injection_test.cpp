// Every allocation and every thread or pool start of a call failing in turn.
//
// For each entry point (and each exported function that allocates or starts
// threads), with valid inputs: one run counts the allocations and the starts;
// then the call runs again once for each of them, with that one failing. Each
// such run must answer with the status and log line of that failure, write
// nothing outside the caller's buffers (guard bytes), give back every block
// it allocated (the library's own bookkeeping of blocks, and LeakSanitizer
// in the ASan build), and leave the library able to serve the next call: a
// normal call right afterwards succeeds with the output of the first run, and
// no thread outlives it.
#include <dirent.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <functional>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "config/xml_parser.h"
#include "frame/platform.h"
#include "registration/brief.h"
#include "support/entry_cases.h"
#include "support/test_support.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

using tocra_test::FaultKind;
using tocra_test::kOutputFill;
using Buffers = std::vector<std::vector<uint8_t>>;

// What one failure must produce.
struct Outcome {
    int status;
    int prio;                                        // of the log line; 0: the line is printed instead
    std::string line;                                // "%d" matches a number; empty: no line required
    enum Output { kSame, kUntouched, kAny } output;  // against the first run / the prepared buffers
    size_t leak = 0;                                 // bytes of the one block the failure keeps on purpose
};

struct Subject {
    std::string name;
    std::function<void()> prepare;
    std::function<int()> run;
    std::function<Buffers()> outputs;
    std::function<bool()> guards;
    // The outcome for the failed event: "alloc" with its size, or the start.
    std::function<Outcome(const std::string& what, size_t size)> expect;
    int okStatus = 0;
    bool detached = false;  // starts threads that end on their own
};

// The number of the event failing in the run being checked (1-based).
int g_failing = 0;

// "%d" in the pattern matches an optionally signed run of digits.
bool LineMatches(const std::string& pattern, const std::string& text) {
    size_t p = 0, t = 0;
    while (p < pattern.size()) {
        if (pattern.compare(p, 2, "%d") == 0) {
            if (t < text.size() && text[t] == '-') ++t;
            const size_t start = t;
            while (t < text.size() && isdigit(static_cast<unsigned char>(text[t]))) ++t;
            if (t == start) return false;
            p += 2;
        } else {
            if (t >= text.size() || text[t] != pattern[p]) return false;
            ++p;
            ++t;
        }
    }
    return t == text.size();
}

bool LoggedLike(int prio, const std::string& pattern) {
    for (const tocra_test::LogLine& l : tocra_test::Log()) {
        if (l.prio == prio && l.tag == "BRIMVEL_AP" && LineMatches(pattern, l.text)) return true;
    }
    return false;
}

std::string LogDump() {
    std::string s;
    for (const tocra_test::LogLine& l : tocra_test::Log()) s += "  [" + std::to_string(l.prio) + "] " + l.text + "\n";
    return s;
}

int TaskCount() {
    DIR* d = opendir("/proc/self/task");
    if (d == nullptr) return -1;
    int n = 0;
    while (dirent* e = readdir(d)) n += e->d_name[0] != '.';
    closedir(d);
    return n;
}

// Detached threads end on their own, and joined ones may linger in the
// listing under an emulator: wait (up to two seconds) until only `n` threads
// remain.
void WaitForTasks(int n) {
    for (int i = 0; i < 200 && TaskCount() > n; ++i) usleep(10000);
}

bool NoLeaks() {
#if defined(__SANITIZE_ADDRESS__)
    return __lsan_do_recoverable_leak_check() == 0;
#else
    return true;
#endif
}

std::set<uintptr_t> Keys(const std::vector<tocra_test::Block>& blocks) {
    std::set<uintptr_t> s;
    for (const tocra_test::Block& b : blocks) s.insert(b.key);
    return s;
}

// Runs s with each event of `kind` failing in turn; returns how many there were.
int Exercise(const Subject& s, FaultKind kind) {
    const char* kindName = kind == FaultKind::kAllocation ? "allocation" : "start";
    int n = 0;
    Buffers baseline;
    const int tasks = TaskCount();
    std::string out = tocra_test::CaptureStdout([&] {
        s.prepare();
        tocra_test::ClearLog();
        tocra_test::FaultInjection count(kind, 0);
        EXPECT_EQ(s.run(), s.okStatus) << s.name << " unfailed\n" << LogDump();
        n = count.count();
    });
    baseline = s.outputs();
    WaitForTasks(tasks);
    for (int i = 1; i <= n; ++i) {
        const std::string ctx = s.name + ", " + kindName + " " + std::to_string(i) + " of " + std::to_string(n);
        s.prepare();
        const Buffers prepared = s.outputs();
        tocra_test::ClearLog();
        const std::set<uintptr_t> before = Keys(tocra_test::Outstanding());
        int status = 0;
        std::string what;
        size_t size = 0;
        const std::string printed = tocra_test::CaptureStdout([&] {
            tocra_test::FaultInjection f(kind, i);
            status = s.run();
            what = f.failed();
            size = f.failedSize();
        });
        if (s.detached) WaitForTasks(tasks);
        if (what.empty()) {
            ADD_FAILURE() << ctx << ": the event never came";
            break;
        }
        g_failing = i;
        const Outcome e = s.expect(what, size);
        const std::string about = ctx + " (" + what + (what == "alloc" ? " " + std::to_string(size) : "") + ")";
        EXPECT_EQ(status, e.status) << about << "\n" << LogDump();
        if (!e.line.empty() && e.prio != 0) {
            EXPECT_TRUE(LoggedLike(e.prio, e.line)) << about << ": no line " << e.line << "\n" << LogDump();
        }
        if (!e.line.empty() && e.prio == 0) {
            EXPECT_NE(printed.find(e.line), std::string::npos) << about << ": printed " << printed;
        }
        EXPECT_TRUE(s.guards()) << about << ": written outside the caller's buffers";
        if (e.output == Outcome::kSame) {
            EXPECT_TRUE(s.outputs() == baseline) << about << ": output differs";
        }
        if (e.output == Outcome::kUntouched) {
            EXPECT_TRUE(s.outputs() == prepared) << about << ": output written";
        }

        // Blocks of this run still held: none, or exactly the one kept on purpose.
        std::vector<tocra_test::Block> kept;
        for (const tocra_test::Block& b : tocra_test::Outstanding()) {
            if (before.count(b.key) == 0) kept.push_back(b);
        }
        if (e.leak == 0) {
            EXPECT_TRUE(kept.empty()) << about << ": " << kept.size() << " block(s) not freed, first "
                                      << (kept.empty() ? 0 : kept[0].size) << " bytes";
        } else {
            EXPECT_EQ(kept.size(), 1u) << about;
            if (kept.size() == 1) {
                EXPECT_EQ(kept[0].size, e.leak) << about;
#if defined(__SANITIZE_ADDRESS__)
                EXPECT_FALSE(NoLeaks()) << about << ": LeakSanitizer does not see the block kept";
#endif
                platform_free(kept[0].addr());  // the caller's to accept; freed so that the leak check below is exact
            }
        }
        EXPECT_TRUE(NoLeaks()) << about << ": LeakSanitizer found a leak";

        // The next call works as the first did.
        out += tocra_test::CaptureStdout([&] {
            s.prepare();
            tocra_test::ClearLog();
            EXPECT_EQ(s.run(), s.okStatus) << about << ": the call after it\n" << LogDump();
        });
        // Every thread is joined by now; under qemu-user a joined thread may
        // still be listed for a moment.
        WaitForTasks(tasks);
        EXPECT_TRUE(s.outputs() == baseline) << about << ": the call after it gave other output";
        EXPECT_TRUE(s.guards()) << about;
        EXPECT_EQ(TaskCount(), tasks) << about << ": threads left running after the next call";
        if (testing::Test::HasFatalFailure()) break;
    }
    return n;
}

void ExerciseAll(const Subject& s) {
    const int allocations = Exercise(s, FaultKind::kAllocation);
    const int starts = Exercise(s, FaultKind::kStart);
    printf("fault points: %-32s %3d allocations, %3d thread/pool starts: %s\n", s.name.c_str(), allocations, starts,
           testing::Test::HasFailure() ? "FAILED" : "all passed");
}

Outcome Unexpected(const std::string& what, size_t size) {
    ADD_FAILURE() << "no outcome for " << what << " " << size;
    return {1234567, 6, "", Outcome::kAny};
}

// ---- the entry points ---------------------------------------------------------

class EntryPointFaults : public testing::Test {
  protected:
    tocra_test::AllCases c{1};
};

TEST_F(EntryPointFaults, BoxFilter) {
    ExerciseAll({"BoxFilter_TocraAPI", [&] { c.box.Prepare(); }, [&] { return BoxFilter_TocraAPI(&c.box.p); },
                 [&] { return c.box.Outputs(); }, [&] { return c.box.GuardsIntact(); },
                 [](const std::string& what, size_t) -> Outcome {
                     // A slice's arrays: logged, the slice left as the work
                     // area held it, the call still succeeds.
                     if (what == "alloc") return {0, 4, "IntegralMat_V_S32XS32_Neon2 %d malloc fail!\n", Outcome::kAny};
                     return {-997, 6, "BoxFiltering_neon MultiThread_Init fail\n", Outcome::kAny};
                 }});
}

TEST_F(EntryPointFaults, BoxfilterYuv2RgbHist) {
    ExerciseAll({"BoxfilterYuv2RgbHist_TocraAPI", [&] { c.yuv.Prepare(); },
                 [&] { return BoxfilterYuv2RgbHist_TocraAPI(&c.yuv.p); }, [&] { return c.yuv.Outputs(); },
                 [&] { return c.yuv.GuardsIntact(); },
                 [](const std::string& what, size_t) -> Outcome {
                     if (what == "alloc") return {0, 4, "IntegralMat_V_S32XS32_Neon2 %d malloc fail!\n", Outcome::kAny};
                     return {-997, 6, "BoxFiltering_neon MultiThread_Init fail\n", Outcome::kAny};
                 }});
}

TEST_F(EntryPointFaults, CalcuFrameBalance) {
    ExerciseAll({"CalcuFrameBalance_TocraAPI", [&] { c.balance.Prepare(); },
                 [&] { return CalcuFrameBalance_TocraAPI(&c.balance.p); }, [&] { return c.balance.Outputs(); },
                 [&] { return c.balance.GuardsIntact(); },
                 [](const std::string& what, size_t size) -> Outcome {
                     if (what == "alloc") return Unexpected(what, size);
                     return {-997, 6, "CalcuFrameBalance MultiThread_Init fail\n", Outcome::kUntouched};
                 }});
}

TEST_F(EntryPointFaults, GetBriefDescriptors) {
    const size_t order = tocra::BriefOrderBytes(tocra_test::BriefCase::N);
    ExerciseAll(
        {"GetBrief_Descriptors_TocraAPI", [&] { c.brief.Prepare(); },
         [&] { return GetBrief_Descriptors_TocraAPI(&c.brief.p); }, [&] { return c.brief.Outputs(); },
         [&] { return c.brief.GuardsIntact(); },
         [order](const std::string& what, size_t size) -> Outcome {
             if (what == "alloc" && (size == order || size == tocra::kBriefWindowsBytes))
                 return {-1000, 6, "GetBrief_Descriptors_TocraAPI malloc error\n", Outcome::kUntouched};
             if (what == "alloc") return Unexpected(what, size);
             // The walk order is not freed on this path: the one
             // leak the interface documents.
             return {-997, 6, "GetBrief_Descriptors_TocraAPI MultiThread_Init fail\n", Outcome::kUntouched, order};
         }});
}

using Reg = tocra_test::RegistrationCase;

// Allocations of the registration path, told apart by their sizes.
bool IsRefine(size_t size) { return size >= 56 && (size - 56) % 60 == 0; }
const size_t kRansacScratch = Reg::N * 80;
const size_t kRegistrationScratch = Reg::W * 100;  // above N * 176 + 224
const size_t kWarpRecords = 4 * sizeof(tagST_THREAD_RECORD);

Outcome RegistrationOutcome(const std::string& what, size_t size) {
    if (what != "alloc")
        return {0, 6, "Thread Create Failed!", Outcome::kSame};  // the warp runs on the caller's thread
    if (size == kRansacScratch) return {-1000, 4, "ransac malloc failed!", Outcome::kAny};
    if (size == kRegistrationScratch) return {-1000, 6, "Reg ImgRegistration: malloc failed\n", Outcome::kAny};
    if (size == kWarpRecords) return {0, 6, "Buffer malloc Failed!", Outcome::kSame};
    // A refit inside RANSAC: that model is skipped and the search goes on.
    if (IsRefine(size)) return {0, 6, "Refine malloc failed!\n", Outcome::kAny};
    return Unexpected(what, size);
}

TEST_F(EntryPointFaults, RansacEst) {
    ExerciseAll({"RansacEst_TocraAPI", [&] { c.reg.Prepare(); },
                 [&] { return RansacEst_TocraAPI(c.reg.ransac.data()); }, [&] { return c.reg.Outputs(); },
                 [&] { return c.reg.GuardsIntact(); }, RegistrationOutcome});
}

TEST_F(EntryPointFaults, Registration) {
    ExerciseAll({"Registration_TocraAPI", [&] { c.reg.PreparePairs(); },
                 [&] { return Registration_TocraAPI(&c.reg.reg); }, [&] { return c.reg.Outputs(); },
                 [&] { return c.reg.GuardsIntact(); },
                 [](const std::string& what, size_t size) -> Outcome {
                     Outcome o = RegistrationOutcome(what, size);
                     if (size == kRegistrationScratch) o.output = Outcome::kUntouched;
                     return o;
                 }});
}

TEST_F(EntryPointFaults, RansacRegis) {
    ExerciseAll({"Ransac_Regis_TocraAPI", [&] { c.reg.Prepare(); },
                 [&] { return Ransac_Regis_TocraAPI(&c.reg.combined); }, [&] { return c.reg.Outputs(); },
                 [&] { return c.reg.GuardsIntact(); }, RegistrationOutcome});
}

TEST_F(EntryPointFaults, ParseXML) {
    ExerciseAll({"ParseXML_TocraAPI", [&] { c.xml.Prepare(); }, [&] { return ParseXML_TocraAPI(&c.xml.p); },
                 [&] { return c.xml.Outputs(); }, [&] { return c.xml.GuardsIntact(); },
                 [](const std::string& what, size_t size) -> Outcome {
                     if (what != "alloc") return Unexpected(what, size);
                     return {-1000, 6, "ParseXML_TocraAPI malloc failed\n", Outcome::kUntouched};
                 }});
}

// ---- exported functions that allocate or start threads --------------------------

TEST(ExportedFunctionFaults, WorkerPool) {
    auto run = [] {
        const int r = MultiThread_Init(4);
        if (r == 0) MultiThread_destory();
        return r;
    };
    ExerciseAll({"MultiThread_Init", [] {}, run, [] { return Buffers{}; }, [] { return true; },
                 [](const std::string& what, size_t size) -> Outcome {
                     if (what == "pthread_attr_init") return {-1, 0, "Failed to init thread attribute.", Outcome::kAny};
                     if (what == "alloc") return Unexpected(what, size);
                     return {-1, 0, "[MultiThread_Init] Create Thread Failed!", Outcome::kAny};
                 }});
}

TEST(ExportedFunctionFaults, ImgDataCopy) {
    constexpr int W = 64, H = 64;
    tocra_test::Guarded<uint8_t> src(W * H), dst(W * H);
    src.Set(tocra_test::RandomBytes(src.bytes(), 9));
    ExerciseAll({"imgDataCopy", [&] { dst.Fill(kOutputFill); },
                 [&] { return imgDataCopy(src.data(), dst.data(), W, H, W); }, [&] { return Buffers{dst.Bytes()}; },
                 [&] { return src.GuardsIntact() && dst.GuardsIntact(); },
                 [](const std::string& what, size_t size) -> Outcome {
                     if (what == "alloc") return Unexpected(what, size);
                     // A band whose thread did not start is logged and left
                     // uncopied; only the fourth start decides the status.
                     if (g_failing == 4) return {-997, 4, "Thread Create Error!", Outcome::kAny};
                     return {0, 4, "i = " + std::to_string(g_failing - 1), Outcome::kAny};
                 }});
}

std::atomic<int> g_ran{0};
void* CountRun(void*) {
    ++g_ran;
    return nullptr;
}

TEST(ExportedFunctionFaults, ThreadStarters) {
    auto expect = [](const std::string& what, size_t) -> Outcome {
        if (what == "alloc") return {-1, 6, "Buffer malloc Failed!", Outcome::kAny};
        return {-1, 6, "Thread Create Failed!", Outcome::kAny};
    };
    ExerciseAll({"create_thread_lock", [] {}, [] { return create_thread_lock(CountRun, nullptr, 4); },
                 [] { return Buffers{}; }, [] { return true; }, expect});
    ExerciseAll({"create_thread_unlock", [] {}, [] { return create_thread_unlock(CountRun, nullptr, 3); },
                 [] { return Buffers{}; }, [] { return true; }, expect, 0, true});
}

TEST(ExportedFunctionFaults, RegistrationStages) {
    tocra_test::AllCases c{1};
    Reg& r = c.reg;
    tagST_IMGREGISTRATION_PARAMS_IN in{};
    tagST_IMGREGISTRATION_PARAMS_OUT out{};
    auto prepare = [&] {
        r.PreparePairs();
        const int stride = 128;
        in.refPic = {Reg::W, Reg::H, stride, r.refY.data(), r.refU.data(), r.refV.data(), TOCRA_FORMAT_YUV420};
        in.srcPic = {Reg::W, Reg::H, stride, r.srcY.data(), r.srcU.data(), r.srcV.data(), 0};
        in.matchPairs = {r.refPts.data(), r.matchPts.data(), Reg::N};
        out.outPic[Reg::K] = {Reg::W, Reg::H, stride, r.outY.data(), r.outU.data(), r.outV.data(), 0};
    };
    ExerciseAll({"ImgRegistration", prepare, [&] { return ImgRegistration(&in, &out, Reg::K); },
                 [&] { return r.Outputs(); }, [&] { return r.GuardsIntact(); },
                 [](const std::string& what, size_t size) -> Outcome {
                     Outcome o = RegistrationOutcome(what, size);
                     if (size == kRegistrationScratch) o.line = "Reg ImgRegistration: malloc failed\n";
                     return o;
                 }});

    float H[9];
    tocra_test::Guarded<unsigned char> scratch(Reg::N * 80);
    tagST_MATCH_PAIRS pairs{};
    tagRANSAC_PARAMS params{100, 160.0f, 0.9995f};
    auto preparePairs = [&] {
        r.PreparePairs();
        pairs = {r.refPts.data(), r.matchPts.data(), Reg::N};
        for (float& h : H) h = 0;
        scratch.Fill(0);
    };
    auto refineOnly = [](const std::string& what, size_t size) -> Outcome {
        if (what == "alloc" && IsRefine(size)) return {0, 6, "Refine malloc failed!\n", Outcome::kAny};
        return Unexpected(what, size);
    };
    ExerciseAll({"RansacEstimation", preparePairs, [&] { return RansacEstimation(&pairs, H, &params, scratch.data()); },
                 [&] { return r.Outputs(); }, [&] { return r.GuardsIntact() && scratch.GuardsIntact(); }, refineOnly});
    ExerciseAll({"HomographyEstimation", preparePairs,
                 [&] { return HomographyEstimation(&pairs, H, &params, scratch.data()); }, [&] { return r.Outputs(); },
                 [&] { return r.GuardsIntact() && scratch.GuardsIntact(); }, refineOnly});
}

TEST(ExportedFunctionFaults, ScanAndParser) {
    // A decimal number longer than the scanner's own buffer grows onto the heap.
    const std::string digits = "0." + std::string(300, '7');
    tocra_test::Guarded<float> field(1);
    ExerciseAll({"sscanf_s", [&] { field.Fill(kOutputFill); },
                 [&] { return sscanf_s(digits.c_str(), "%f", field.data()); }, [&] { return Buffers{field.Bytes()}; },
                 [&] { return field.GuardsIntact(); },
                 [](const std::string& what, size_t size) -> Outcome {
                     if (what != "alloc") return Unexpected(what, size);
                     // The field cannot be read: nothing assigned.
                     return {0, 0, "", Outcome::kUntouched};
                 },
                 1});

    // The parser reports an exhausted heap as its own error code, having
    // released whatever it had built.
    const std::string text =
        "<?xml version=\"1.0\"?><Config a=\"1\"><Face><Margin>100</Margin><!-- c --><![CDATA[x]]></Face>"
        "<T>&amp;&#65;</T></Config>";
    ExerciseAll({"XMLNode::parseString", [] {},
                 [&] {
                     XMLResults r{eXMLErrorNone, -1, -1};
                     XMLNode n = XMLNode::parseString(text.c_str(), nullptr, &r);
                     if (r.error == eXMLErrorOutOfMemory && n.isEmpty() && r.nLine == 0 && r.nColumn == 0) return -1000;
                     return n.isEmpty() ? 1 : static_cast<int>(r.error);
                 },
                 [] { return Buffers{}; }, [] { return true; },
                 [](const std::string& what, size_t size) -> Outcome {
                     if (what != "alloc") return Unexpected(what, size);
                     return {-1000, 0, "", Outcome::kAny};
                 }});

    // Building: a step that runs out of memory changes nothing and answers
    // as on the empty node; the tree built so far stays whole.
    ExerciseAll({"XMLNode building", [] {},
                 [] {
                     XMLNode top = XMLNode::createXMLTopNode("Config");
                     if (top.isEmpty()) return -1000;
                     XMLNode face = top.addChild("Face");
                     if (face.isEmpty()) return top.nElement() == 0 ? -1000 : 2;
                     const int before = face.nElement();
                     bool ok = face.addAttribute("a", "1").lpszName != nullptr;
                     ok = ok && face.addText("100") != nullptr;
                     ok = ok && face.addClear("x").lpszValue != nullptr;
                     ok = ok && face.updateText("200", 0) != nullptr;
                     ok = ok && face.updateAttribute("2", nullptr, 0).lpszValue != nullptr;
                     if (!ok) {
                         // Whatever was added before the failing step is there, in order.
                         const int n = face.nElement();
                         if (n < before || n > before + 3) return 3;
                         if (n >= 2 && strcmp(face.getText(0), "100") != 0 && strcmp(face.getText(0), "200") != 0)
                             return 4;
                         return -1000;
                     }
                     XMLError e = eXMLErrorNone;
                     char* s = XMLNode::fromXMLString("&amp;&#65;", -1, &e);
                     if (s == nullptr) return e == eXMLErrorOutOfMemory ? -1000 : 5;
                     const bool same = strcmp(s, "&A") == 0;
                     XMLNode::freeXMLString(s);
                     return same && top.nChildNode() == 1 && face.nElement() == 3 &&
                                    strcmp(face.getText(), "200") == 0 && strcmp(face.getAttribute("a"), "2") == 0
                                ? 0
                                : 6;
                 },
                 [] { return Buffers{}; }, [] { return true; },
                 [](const std::string& what, size_t size) -> Outcome {
                     if (what != "alloc") return Unexpected(what, size);
                     return {-1000, 0, "", Outcome::kAny};
                 }});
}

}  // namespace
