// Benchmark main. The library prints its sub-step timings on standard output
// and logs progress; both are silenced here so that the benchmark table stays
// readable (the table goes to the original standard output).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>

// Quiet stand-in for the platform log while benchmarking.
extern "C" int __android_log_print(int, const char*, const char*, ...) { return 0; }

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    std::ofstream table("/dev/stdout");
    fflush(stdout);
    const int devnull = open("/dev/null", O_WRONLY);
    if (devnull >= 0) {
        dup2(devnull, STDOUT_FILENO);
        close(devnull);
    }
    benchmark::ConsoleReporter reporter;
    reporter.SetOutputStream(&table);
    reporter.SetErrorStream(&std::cerr);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
