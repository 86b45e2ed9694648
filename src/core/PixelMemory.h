#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace pv {

// Memory for whole pictures. Large blocks are mapped on their own, aligned so that the kernel
// can back them with huge pages (a 64-megapixel picture then costs a hundred page faults
// instead of fifty thousand), and returned to the system when freed - unless the thread has
// asked to keep its last freed block for the next picture of a batch.
namespace pixel_memory {

// Nothing when memory is short. zeroed: every byte 0.
std::uint8_t* allocate(std::size_t bytes, bool zeroed);
void release(std::uint8_t* block, std::size_t bytes) noexcept;
// The pages wholly inside [start, start + bytes) of a block go back to the system; their bytes
// read as zero afterwards. For data consumed on the way to somewhere else.
void discard(std::uint8_t* start, std::size_t bytes) noexcept;
// Sets [start, start + bytes) of a block to zero, handing its whole pages back to the system
// rather than writing them, so that zeros nobody writes cost no memory.
void zero(std::uint8_t* start, std::size_t bytes) noexcept;

// While one lives, the calling thread keeps the largest block it frees (one at most) and hands
// it out again for the next request it can hold; the block is returned to the system when the
// last one on the thread ends. For workers that open file after file.
class KeepFreedBlocks {
  public:
    KeepFreedBlocks();
    ~KeepFreedBlocks();
    KeepFreedBlocks(const KeepFreedBlocks&) = delete;
    KeepFreedBlocks& operator=(const KeepFreedBlocks&) = delete;
};

}  // namespace pixel_memory

// Owns a block of pixel_memory.
class PixelBlock {
  public:
    PixelBlock() = default;
    static PixelBlock allocate(std::size_t bytes, bool zeroed) {
        PixelBlock b;
        b.data_ = pixel_memory::allocate(bytes, zeroed);
        b.bytes_ = b.data_ ? bytes : 0;
        return b;
    }
    PixelBlock(PixelBlock&& o) noexcept : data_(o.data_), bytes_(o.bytes_) {
        o.data_ = nullptr;
        o.bytes_ = 0;
    }
    PixelBlock& operator=(PixelBlock&& o) noexcept {
        if (this != &o) {
            reset();
            data_ = o.data_;
            bytes_ = o.bytes_;
            o.data_ = nullptr;
            o.bytes_ = 0;
        }
        return *this;
    }
    PixelBlock(const PixelBlock&) = delete;
    PixelBlock& operator=(const PixelBlock&) = delete;
    ~PixelBlock() { reset(); }

    void reset() noexcept {
        if (data_) {
            pixel_memory::release(data_, bytes_);
        }
        data_ = nullptr;
        bytes_ = 0;
    }
    std::uint8_t* get() const { return data_; }
    std::size_t size() const { return bytes_; }
    explicit operator bool() const { return data_ != nullptr; }

  private:
    std::uint8_t* data_ = nullptr;
    std::size_t bytes_ = 0;
};

}  // namespace pv
