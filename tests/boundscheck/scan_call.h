// Calls sscanf_s (or another function with its signature) with a list of
// destinations chosen at run time, each passed with its exact type: a
// pointer, followed by an unsigned int size for text destinations. Used by
// the generated-format tests and the scan fuzz target.
#ifndef TOCRA_TESTS_BOUNDSCHECK_SCAN_CALL_H
#define TOCRA_TESTS_BOUNDSCHECK_SCAN_CALL_H

#include <array>
#include <utility>

#include "brimvel_tocra.h"

namespace tocra_test {

struct ScanArg {
    void* ptr;
    unsigned int size;
    bool sized;  // a text destination: pointer and size
};

constexpr int kMaxScanArgs = 8;

using ScanFunction = int (*)(const char*, const char*, ...);

namespace scan_call_detail {

using Caller = int (*)(const char*, const char*, const ScanArg*);

template <ScanFunction Fn, unsigned Mask, int I, typename... Passed>
int CallMasked(const char* str, const char* format, const ScanArg* a, Passed... passed) {
    if constexpr (I == kMaxScanArgs) {
        return Fn(str, format, passed...);
    } else if constexpr (((Mask >> I) & 1u) != 0) {
        return CallMasked<Fn, Mask, I + 1>(str, format, a, passed..., a[I].ptr, a[I].size);
    } else {
        return CallMasked<Fn, Mask, I + 1>(str, format, a, passed..., a[I].ptr);
    }
}

template <ScanFunction Fn, unsigned... Masks>
constexpr std::array<Caller, sizeof...(Masks)> MakeCallers(std::integer_sequence<unsigned, Masks...>) {
    return {{&CallMasked<Fn, Masks, 0>...}};
}

}  // namespace scan_call_detail

// args[0..count) are the destinations in format order (count <= 8); the
// remaining argument slots are passed as null pointers and never read.
template <ScanFunction Fn = sscanf_s>
int CallScan(const char* str, const char* format, const ScanArg* args, int count) {
    static constexpr auto callers =
        scan_call_detail::MakeCallers<Fn>(std::make_integer_sequence<unsigned, 1u << kMaxScanArgs>{});
    std::array<ScanArg, kMaxScanArgs> all{};
    unsigned mask = 0;
    for (int i = 0; i < count && i < kMaxScanArgs; ++i) {
        all[i] = args[i];
        if (args[i].sized) mask |= 1u << i;
    }
    return callers[mask](str, format, all.data());
}

}  // namespace tocra_test

#endif
