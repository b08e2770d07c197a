// Summed-area table of a 12-megapixel plane against cv::integral (CV_32S).
#include <benchmark/benchmark.h>

#include <opencv2/imgproc.hpp>
#include <vector>

#include "bench/bench_support.h"
#include "brimvel_tocra.h"
#include "frame/picture.h"

namespace {

void BM_IntergralMat_MT(benchmark::State& state) {
    const int w = tocra_bench::kWidth, h = tocra_bench::kHeight, stride = tocra::Pitch128(w);
    const auto src = tocra_bench::TexturedPlane(w, h, stride);
    std::vector<int32_t> dst(static_cast<size_t>(w + 1) * (h + 1));
    MultiThread_Init(4);
    for (auto _ : state) {
        IntergralMat_MT(src.data(), dst.data(), w, h, stride);
        benchmark::DoNotOptimize(dst.data());
    }
    MultiThread_destory();
}

void BM_cv_integral(benchmark::State& state) {
    const int w = tocra_bench::kWidth, h = tocra_bench::kHeight, stride = tocra::Pitch128(w);
    auto plane = tocra_bench::TexturedPlane(w, h, stride);
    cv::Mat src(h, w, CV_8UC1, plane.data(), stride), sum;
    for (auto _ : state) {
        cv::integral(src, sum, CV_32S);
        benchmark::DoNotOptimize(sum.data);
    }
}

BENCHMARK(BM_IntergralMat_MT)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_cv_integral)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
