// Two camera sessions calling at once: while one entry point runs on one
// thread, every entry point called on another is refused with -996 and a
// log line, and touches nothing; the running call is not disturbed, and
// calls made after it ends run normally. Nested entry points on one thread
// (Ransac_Regis_TocraAPI) still run.
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "support/entry_cases.h"

namespace {

using tocra_test::AllCases;

// A converter that holds the first conversion of one handle until released,
// so that the call making it stays inside its entry point.
struct Gate {
    std::mutex m;
    std::condition_variable cv;
    uint32_t handle = 0;
    bool inside = false;
    bool open = false;
};
Gate g_gate;

void* GatedConvert(uint32_t handle) {
    if (handle == g_gate.handle && handle != 0) {
        std::unique_lock<std::mutex> lock(g_gate.m);
        g_gate.inside = true;
        g_gate.cv.notify_all();
        g_gate.cv.wait(lock, [] { return g_gate.open; });
    }
    return tocra_test::HandleTable::Convert(handle);
}

struct Entry {
    const char* name;
    std::function<int()> call;
};

std::vector<Entry> Entries(AllCases& c) {
    return {
        {"BoxFilter_TocraAPI", [&] { return BoxFilter_TocraAPI(&c.box.p); }},
        {"BoxfilterYuv2RgbHist_TocraAPI", [&] { return BoxfilterYuv2RgbHist_TocraAPI(&c.yuv.p); }},
        {"CalcuFrameBalance_TocraAPI", [&] { return CalcuFrameBalance_TocraAPI(&c.balance.p); }},
        {"GetBrief_Descriptors_TocraAPI", [&] { return GetBrief_Descriptors_TocraAPI(&c.brief.p); }},
        {"RansacEst_TocraAPI", [&] { return RansacEst_TocraAPI(c.reg.ransac.data()); }},
        {"Registration_TocraAPI", [&] { return Registration_TocraAPI(&c.reg.reg); }},
        {"Ransac_Regis_TocraAPI", [&] { return Ransac_Regis_TocraAPI(&c.reg.combined); }},
        {"ParseXML_TocraAPI", [&] { return ParseXML_TocraAPI(&c.xml.p); }},
    };
}

void PrepareAll(AllCases& c) {
    c.box.Prepare();
    c.yuv.Prepare();
    c.balance.Prepare();
    c.brief.Prepare();
    c.reg.PreparePairs();
    c.xml.record.Fill(tocra_test::kOutputFill);
}

std::vector<std::vector<uint8_t>> AllOutputs(const AllCases& c) {
    std::vector<std::vector<uint8_t>> v;
    for (const auto& part :
         {c.box.Outputs(), c.yuv.Outputs(), c.balance.Outputs(), c.brief.Outputs(), c.reg.Outputs(), c.xml.Outputs()}) {
        v.insert(v.end(), part.begin(), part.end());
    }
    return v;
}

TEST(ConcurrentCalls, AnEntryPointRunningOnAnotherThreadRefusesEveryOther) {
    tocra_test::CaptureStdout([] {
        AllCases running(1), other(2);
        PrepareAll(other);
        const auto untouched = AllOutputs(other);
        running.balance.Prepare();

        // Each entry point in turn is the one held inside.
        for (const Entry& held : Entries(running)) {
            const std::string name = held.name;
            running.box.Prepare();
            running.yuv.Prepare();
            running.balance.Prepare();
            running.brief.Prepare();
            running.reg.PreparePairs();
            if (name == "RansacEst_TocraAPI" || name == "Ransac_Regis_TocraAPI") running.reg.Prepare();
            // The first handle each one converts.
            uint32_t gate = 0;
            if (name == "BoxFilter_TocraAPI") gate = running.box.p.hOutput;
            if (name == "BoxfilterYuv2RgbHist_TocraAPI") gate = running.yuv.p.hMap;
            if (name == "CalcuFrameBalance_TocraAPI") gate = running.balance.p.hFrameA;
            if (name == "GetBrief_Descriptors_TocraAPI") gate = running.brief.p.hImage;
            if (name == "RansacEst_TocraAPI") gate = running.reg.ransac[0].refPointBuf;
            if (name == "Registration_TocraAPI") gate = running.reg.in[0].refPic.hY;
            if (name == "Ransac_Regis_TocraAPI") gate = running.reg.combined.hRansacRequest;
            if (name == "ParseXML_TocraAPI") {
                running.xml.Prepare();
                gate = running.xml.p.xmlInfo;
            }
            {
                std::lock_guard<std::mutex> lock(g_gate.m);
                g_gate.inside = false;
                g_gate.open = false;
                g_gate.handle = gate;
            }
            setIO2VAConverter(GatedConvert);

            int heldStatus = 1;
            std::thread first([&] { heldStatus = held.call(); });
            {
                std::unique_lock<std::mutex> lock(g_gate.m);
                g_gate.cv.wait(lock, [] { return g_gate.inside; });
            }
            tocra_test::ClearLog();
            for (const Entry& e : Entries(other)) {
                EXPECT_EQ(e.call(), TOCRA_BUSY) << e.name << " while " << name << " runs";
                EXPECT_TRUE(tocra_test::Logged(6, std::string(e.name) + " refused: another entry point is running\n"))
                    << e.name;
            }
            // A null record is refused the same way: nothing is looked at.
            EXPECT_EQ(CalcuFrameBalance_TocraAPI(nullptr), TOCRA_BUSY);
            EXPECT_TRUE(AllOutputs(other) == untouched) << "a refused call wrote while " << name << " ran";
            {
                std::lock_guard<std::mutex> lock(g_gate.m);
                g_gate.open = true;
            }
            g_gate.cv.notify_all();
            first.join();
            EXPECT_EQ(heldStatus, 0) << name << " was disturbed";
        }
        // Afterwards, everything runs again (Ransac_Regis_TocraAPI runs its
        // two nested entry points on the same thread).
        running.table.Install();
        other.reg.Prepare();
        EXPECT_EQ(Ransac_Regis_TocraAPI(&other.reg.combined), TOCRA_OK);
        EXPECT_EQ(CalcuFrameBalance_TocraAPI(&other.balance.p), TOCRA_OK);
    });
}

// Two threads calling entry points over and over: each call either runs to
// its normal result or is refused, and every refusal is logged.
TEST(ConcurrentCalls, TwoSessionsHammeringEachOther) {
    tocra_test::CaptureStdout([] {
        AllCases a(3), b(4);
        auto loop = [](AllCases* c, int* ok, int* busy) {
            for (int i = 0; i < 30; ++i) {
                c->balance.Prepare();
                const int s1 = CalcuFrameBalance_TocraAPI(&c->balance.p);
                c->brief.Prepare();
                const int s2 = GetBrief_Descriptors_TocraAPI(&c->brief.p);
                for (int s : {s1, s2}) {
                    EXPECT_TRUE(s == 0 || s == TOCRA_BUSY) << s;
                    *ok += s == 0;
                    *busy += s == TOCRA_BUSY;
                }
            }
        };
        int okA = 0, busyA = 0, okB = 0, busyB = 0;
        tocra_test::ClearLog();
        std::thread ta(loop, &a, &okA, &busyA), tb(loop, &b, &okB, &busyB);
        ta.join();
        tb.join();
        EXPECT_EQ(okA + busyA + okB + busyB, 120);
        EXPECT_GT(okA + okB, 0);
        int refusals = 0;
        for (const auto& l : tocra_test::Log())
            refusals += l.text.find(" refused: another entry point is running\n") != std::string::npos;
        EXPECT_EQ(refusals, busyA + busyB);
    });
}

}  // namespace
