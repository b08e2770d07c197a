// Global operator new and delete for the fault-injection binary: the
// library's objects and standard containers go through the same counting
// as its other allocations (see FaultInjection). Everything else is plain
// malloc and free.
#include <cstdlib>
#include <new>

#include "support/test_support.h"

namespace {

void* Allocate(size_t n) {
    if (!tocra_test::AllowAllocation(n)) return nullptr;
    void* p = malloc(n == 0 ? 1 : n);
    tocra_test::NoteAllocation(p, n);
    return p;
}

void Release(void* p) {
    tocra_test::NoteRelease(p);
    free(p);
}

}  // namespace

void* operator new(size_t n) {
    void* p = Allocate(n);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}

void* operator new[](size_t n) {
    void* p = Allocate(n);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}

void* operator new(size_t n, const std::nothrow_t&) noexcept { return Allocate(n); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept { return Allocate(n); }

void operator delete(void* p) noexcept { Release(p); }
void operator delete[](void* p) noexcept { Release(p); }
void operator delete(void* p, size_t) noexcept { Release(p); }
void operator delete[](void* p, size_t) noexcept { Release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { Release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { Release(p); }
