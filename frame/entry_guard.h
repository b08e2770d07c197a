// One entry point at a time: the entry points share the hooks, the worker
// pool and the configuration object, so a call made while another entry
// point runs on another thread is refused instead of sharing them. An entry
// point called from inside another on the same thread (Ransac_Regis_TocraAPI
// calling RansacEst_TocraAPI and Registration_TocraAPI) runs as usual.
//
// The pool functions and the kernels called directly are not guarded.
#ifndef BRIMVEL_FRAME_ENTRY_GUARD_H
#define BRIMVEL_FRAME_ENTRY_GUARD_H

#include "brimvel_tocra.h"

namespace tocra {

// Held for the length of an entry point's body. When another thread holds
// it, construction logs "%s refused: another entry point is running\n" (error
// priority) with the entry point's name and refused() is true.
class EntryGuard {
  public:
    explicit EntryGuard(const char* name);
    ~EntryGuard();
    EntryGuard(const EntryGuard&) = delete;
    EntryGuard& operator=(const EntryGuard&) = delete;
    bool refused() const { return !entered_; }

  private:
    bool entered_;
};

}  // namespace tocra

// The first line of every entry point: answers TOCRA_BUSY (-996) while
// another thread is inside an entry point.
#define TOCRA_ONE_CALL_AT_A_TIME(name)                \
    const ::tocra::EntryGuard tocraEntryGuard_(name); \
    if (tocraEntryGuard_.refused()) return TOCRA_BUSY

#endif
