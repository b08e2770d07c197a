// Graphic buffers the way a camera pipeline holds them: blocks of memory that
// the library knows only by 32-bit handles. The pipeline installs two hooks
// before its first call: one turns a handle into an address, the other
// invalidates the processor's cache over a buffer that other hardware wrote.
#ifndef TOCRA_DEMO_BUFFERS_H
#define TOCRA_DEMO_BUFFERS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "brimvel_tocra.h"

namespace demo {

// Registers addresses under handles and answers the library's conversions.
// Handles start at 0x1000 so that they never look like addresses; handle 0
// means "no buffer" and converts to a null address.
namespace handles {

uint32_t Register(void* address);
// The handle converts to a null address from now on.
void Release(uint32_t handle);
void* Address(uint32_t handle);
// setIO2VAConverter and setGraphicBufferInvalidater with this table's hooks.
void InstallHooks();
// How many times the library asked for a cache invalidation.
int Invalidations();

}  // namespace handles

// One block of memory, zeroed, with one handle to its first byte. It is never
// resized, so the registered address stays valid for the block's lifetime;
// its handles are released with it.
class GraphicBuffer {
  public:
    GraphicBuffer() = default;
    explicit GraphicBuffer(size_t bytes);
    ~GraphicBuffer();
    GraphicBuffer(GraphicBuffer&& other) noexcept;
    GraphicBuffer& operator=(GraphicBuffer&& other) noexcept;
    GraphicBuffer(const GraphicBuffer&) = delete;
    GraphicBuffer& operator=(const GraphicBuffer&) = delete;

    uint8_t* data() const { return bytes_.get(); }
    size_t size() const { return size_; }
    uint32_t handle() const { return handles_.empty() ? 0 : handles_[0]; }
    // Registers an address inside the block under a handle of its own (a
    // plane of a multi-plane buffer, for example).
    uint32_t HandleAt(size_t offset);

  private:
    void ReleaseHandles();

    std::unique_ptr<uint8_t[]> bytes_;
    size_t size_ = 0;
    std::vector<uint32_t> handles_;
};

}  // namespace demo

#endif
