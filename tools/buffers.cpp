#include "buffers.h"

#include <vector>

namespace demo {
namespace handles {
namespace {

constexpr uint32_t kFirstHandle = 0x1000;

std::vector<void*>& Table() {
    static std::vector<void*> table;
    return table;
}

int g_invalidations = 0;

// FunConvert2Addr: handle to address, 0 for handles the table never gave out.
void* ConvertHandle(uint32_t handle) { return Address(handle); }

// FunInvalidBuff: on a phone this drops the processor's cached lines of a
// buffer that the camera or GPU wrote. Here every buffer is written by the
// processor, so there is nothing to drop; the call is only counted.
void InvalidateBuffer(void* /*address*/) { ++g_invalidations; }

}  // namespace

uint32_t Register(void* address) {
    Table().push_back(address);
    return kFirstHandle + static_cast<uint32_t>(Table().size() - 1);
}

void Release(uint32_t handle) {
    if (handle >= kFirstHandle && handle - kFirstHandle < Table().size()) Table()[handle - kFirstHandle] = nullptr;
}

void* Address(uint32_t handle) {
    if (handle < kFirstHandle) return nullptr;
    const size_t index = handle - kFirstHandle;
    return index < Table().size() ? Table()[index] : nullptr;
}

void InstallHooks() {
    setIO2VAConverter(ConvertHandle);
    setGraphicBufferInvalidater(InvalidateBuffer);
}

int Invalidations() { return g_invalidations; }

}  // namespace handles

GraphicBuffer::GraphicBuffer(size_t bytes) : bytes_(new uint8_t[bytes == 0 ? 1 : bytes]()), size_(bytes) {
    handles_.push_back(handles::Register(bytes_.get()));
}

GraphicBuffer::~GraphicBuffer() { ReleaseHandles(); }

GraphicBuffer::GraphicBuffer(GraphicBuffer&& other) noexcept
    : bytes_(std::move(other.bytes_)), size_(other.size_), handles_(std::move(other.handles_)) {
    other.size_ = 0;
    other.handles_.clear();
}

GraphicBuffer& GraphicBuffer::operator=(GraphicBuffer&& other) noexcept {
    if (this != &other) {
        ReleaseHandles();
        bytes_ = std::move(other.bytes_);
        size_ = other.size_;
        handles_ = std::move(other.handles_);
        other.size_ = 0;
        other.handles_.clear();
    }
    return *this;
}

uint32_t GraphicBuffer::HandleAt(size_t offset) {
    handles_.push_back(handles::Register(bytes_.get() + offset));
    return handles_.back();
}

void GraphicBuffer::ReleaseHandles() {
    for (uint32_t h : handles_) handles::Release(h);
    handles_.clear();
}

}  // namespace demo
