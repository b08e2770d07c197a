// Soak run: every entry point in turn, with inputs that vary at random but
// stay valid, for a given number of seconds. Every few seconds it samples
// the process's resident memory, open descriptors and threads; at the end it
// prints the calls made per entry point, any status other than the expected
// one, and the samples at the start, their maximum and at the end.
//   tocra_soak SECONDS [SAMPLE_SECONDS]
#include <dirent.h>
#include <malloc.h>
#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "support/entry_cases.h"

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer's count of bytes in blocks the program holds.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace {

struct Sample {
    double at;
    long rssKb;
    long heapKb;  // blocks in use on the heap (the sanitizer's count under ASan)
    int fds;
    int threads;
};

double Now() {
    timeval tv;
    gettimeofday(&tv, nullptr);
    return tv.tv_sec + tv.tv_usec / 1e6;
}

int CountEntries(const char* dir) {
    DIR* d = opendir(dir);
    if (d == nullptr) return -1;
    int n = 0;
    while (dirent* e = readdir(d)) n += e->d_name[0] != '.';
    closedir(d);
    return n - (strcmp(dir, "/proc/self/fd") == 0 ? 1 : 0);  // the one opendir holds
}

long RssKb() {
    FILE* f = fopen("/proc/self/status", "r");
    if (f == nullptr) return -1;
    char line[256];
    long kb = -1;
    while (fgets(line, sizeof line, f) != nullptr) {
        if (strncmp(line, "VmRSS:", 6) == 0) kb = strtol(line + 6, nullptr, 10);
    }
    fclose(f);
    return kb;
}

long HeapKb() {
#if defined(__SANITIZE_ADDRESS__)
    return static_cast<long>(__sanitizer_get_current_allocated_bytes() / 1024);
#else
    return static_cast<long>(mallinfo2().uordblks / 1024);
#endif
}

Sample Take(double start) {
    return {Now() - start, RssKb(), HeapKb(), CountEntries("/proc/self/fd"), CountEntries("/proc/self/task")};
}

struct Entry {
    const char* name;
    std::function<void()> prepare;
    std::function<int()> call;
    long calls = 0;
    long unexpected = 0;
};

// A small generator of our own for the varying parts.
uint32_t Next(uint32_t* s) {
    *s ^= *s << 13;
    *s ^= *s >> 17;
    *s ^= *s << 5;
    return *s;
}

}  // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? atof(argv[1]) : 60;
    const double every = argc > 2 ? atof(argv[2]) : 5;
    uint32_t rng = 0x2545F491u;
    tocra_test::AllCases c(1);
    std::vector<Entry> entries = {
        {"BoxFilter_TocraAPI", [&] { c.box.Prepare(); }, [&] { return BoxFilter_TocraAPI(&c.box.p); }},
        {"BoxfilterYuv2RgbHist_TocraAPI", [&] { c.yuv.Prepare(); },
         [&] { return BoxfilterYuv2RgbHist_TocraAPI(&c.yuv.p); }},
        {"CalcuFrameBalance_TocraAPI", [&] { c.balance.Prepare(); },
         [&] { return CalcuFrameBalance_TocraAPI(&c.balance.p); }},
        {"GetBrief_Descriptors_TocraAPI", [&] { c.brief.Prepare(); },
         [&] { return GetBrief_Descriptors_TocraAPI(&c.brief.p); }},
        {"RansacEst_TocraAPI", [&] { c.reg.Prepare(); }, [&] { return RansacEst_TocraAPI(c.reg.ransac.data()); }},
        {"Registration_TocraAPI", [&] { c.reg.PreparePairs(); }, [&] { return Registration_TocraAPI(&c.reg.reg); }},
        {"Ransac_Regis_TocraAPI", [&] { c.reg.Prepare(); }, [&] { return Ransac_Regis_TocraAPI(&c.reg.combined); }},
        // Prepare makes the reader forget the file, so every call parses it.
        {"ParseXML_TocraAPI", [&] { c.xml.Prepare(); }, [&] { return ParseXML_TocraAPI(&c.xml.p); }},
    };
    // The pool prints its stop lines on standard output: not wanted here.
    FILE* quiet = freopen("/dev/null", "w", stdout);
    (void)quiet;

    const double start = Now();
    std::vector<Sample> samples{Take(start)};
    double nextSample = every;
    long rounds = 0;
    while (Now() - start < seconds) {
        // New contents, motion, faces and keypoints every round; the handles
        // of the last round are forgotten.
        c.table.Clear();
        c.Init(Next(&rng));
        for (Entry& e : entries) {
            e.prepare();
            const int status = e.call();
            ++e.calls;
            if (status != 0) ++e.unexpected;
        }
        tocra_test::ClearLog();
        tocra_test::ClearFlushes();
        ++rounds;
        if (Now() - start >= nextSample) {
            samples.push_back(Take(start));
            nextSample += every;
        }
    }
    samples.push_back(Take(start));

    FILE* out = stderr;
    long total = 0;
    fprintf(out, "soak: %.0f s, %ld rounds\n", Now() - start, rounds);
    for (const Entry& e : entries) {
        fprintf(out, "  %-32s %8ld calls, %ld not 0\n", e.name, e.calls, e.unexpected);
        total += e.calls;
    }
    Sample mx = samples[0];
    for (const Sample& s : samples) {
        if (s.rssKb > mx.rssKb) mx.rssKb = s.rssKb;
        if (s.heapKb > mx.heapKb) mx.heapKb = s.heapKb;
        if (s.fds > mx.fds) mx.fds = s.fds;
        if (s.threads > mx.threads) mx.threads = s.threads;
    }
    const Sample& a = samples.front();
    const Sample& z = samples.back();
    fprintf(out, "  calls in all: %ld\n", total);
    fprintf(out, "  %-12s %10s %10s %10s\n", "", "start", "max", "end");
    fprintf(out, "  %-12s %10ld %10ld %10ld\n", "VmRSS kB", a.rssKb, mx.rssKb, z.rssKb);
    fprintf(out, "  %-12s %10ld %10ld %10ld\n", "heap kB", a.heapKb, mx.heapKb, z.heapKb);
    fprintf(out, "  %-12s %10d %10d %10d\n", "open fds", a.fds, mx.fds, z.fds);
    fprintf(out, "  %-12s %10d %10d %10d\n", "threads", a.threads, mx.threads, z.threads);
    fprintf(out, "  samples (s, VmRSS kB, heap kB, fds, threads):");
    for (size_t i = 0; i < samples.size(); ++i) {
        if (i % 5 == 0) fprintf(out, "\n   ");
        fprintf(out, " (%.0f, %ld, %ld, %d, %d)", samples[i].at, samples[i].rssKb, samples[i].heapKb, samples[i].fds,
                samples[i].threads);
    }
    fprintf(out, "\n");
    bool bad = false;
    for (const Entry& e : entries) bad |= e.unexpected != 0;
    bad |= z.fds != a.fds || z.threads != a.threads;
    return bad ? 1 : 0;
}
