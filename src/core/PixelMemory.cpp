#include "core/PixelMemory.h"

#include <sys/mman.h>

#include <cstring>
#include <new>

namespace pv::pixel_memory {

namespace {

constexpr std::size_t kHugePage = std::size_t(2) << 20;
// Below this a block goes through the ordinary heap: mapping it would cost more than it saves.
constexpr std::size_t kMappedFrom = std::size_t(1) << 20;

std::size_t mappedSize(std::size_t bytes) {
    return (bytes + kHugePage - 1) / kHugePage * kHugePage;
}

std::uint8_t* map(std::size_t bytes) {
    const std::size_t size = mappedSize(bytes);
    // Mapped with a huge page to spare, so that an aligned start can be cut out of it.
    void* raw =
        mmap(nullptr, size + kHugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) {
        return nullptr;
    }
    auto* start = static_cast<std::uint8_t*>(raw);
    const std::size_t misalignment = reinterpret_cast<std::uintptr_t>(start) % kHugePage;
    const std::size_t head = misalignment == 0 ? 0 : kHugePage - misalignment;
    if (head > 0) {
        munmap(start, head);
    }
    std::uint8_t* aligned = start + head;
    const std::size_t tail = kHugePage - head;
    if (tail > 0) {
        munmap(aligned + size, tail);
    }
    // Only advice: where huge pages are off, or the system has no such advice, ordinary pages
    // serve as before. Only the whole huge pages that the block fills are advised: a huge page
    // for a block's last part would make a slice of a stack cost up to twice its size.
#ifdef MADV_HUGEPAGE
    if (const std::size_t whole = bytes / kHugePage * kHugePage) {
        madvise(aligned, whole, MADV_HUGEPAGE);
    }
#endif
    return aligned;
}

struct Kept {
    int keepers = 0;
    std::uint8_t* block = nullptr;
    std::size_t bytes = 0;

    void drop() noexcept {
        if (block) {
            munmap(block, mappedSize(bytes));
        }
        block = nullptr;
        bytes = 0;
    }
    ~Kept() { drop(); }
};

thread_local Kept kept;

}  // namespace

std::uint8_t* allocate(std::size_t bytes, bool zeroed) {
    if (bytes < kMappedFrom) {
        return zeroed ? new (std::nothrow) std::uint8_t[bytes]()
                      : new (std::nothrow) std::uint8_t[bytes];
    }
    // The kept block serves any request that fits in its mapping without wasting half of it.
    if (kept.block && mappedSize(kept.bytes) >= bytes && mappedSize(kept.bytes) / 2 < bytes) {
        std::uint8_t* block = kept.block;
        const std::size_t had = mappedSize(kept.bytes);
        kept.block = nullptr;
        kept.bytes = 0;
        if (had != mappedSize(bytes)) {
            // A shorter request gives back the whole huge pages it does not need.
            munmap(block + mappedSize(bytes), had - mappedSize(bytes));
        }
        if (zeroed) {
            std::memset(block, 0, bytes);
        }
        return block;
    }
    return map(bytes);  // fresh mappings read as zero
}

void release(std::uint8_t* block, std::size_t bytes) noexcept {
    if (!block) {
        return;
    }
    if (bytes < kMappedFrom) {
        delete[] block;
        return;
    }
    if (kept.keepers > 0 && bytes >= kept.bytes) {
        kept.drop();
        kept.block = block;
        kept.bytes = bytes;
        return;
    }
    munmap(block, mappedSize(bytes));
}

void discard(std::uint8_t* start, std::size_t bytes) noexcept {
    constexpr std::uintptr_t kPage = 4096;
    const std::uintptr_t first =
        (reinterpret_cast<std::uintptr_t>(start) + kPage - 1) & ~(kPage - 1);
    const std::uintptr_t end = (reinterpret_cast<std::uintptr_t>(start) + bytes) & ~(kPage - 1);
    if (end > first) {
        madvise(reinterpret_cast<void*>(first), end - first, MADV_DONTNEED);
    }
}

void zero(std::uint8_t* start, std::size_t bytes) noexcept {
    constexpr std::uintptr_t kPage = 4096;
    const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(start);
    const std::uintptr_t first = (at + kPage - 1) & ~(kPage - 1);
    const std::uintptr_t end = (at + bytes) & ~(kPage - 1);
    if (end <= first) {
        std::memset(start, 0, bytes);
        return;
    }
    std::memset(start, 0, first - at);
    discard(start, bytes);
    std::memset(reinterpret_cast<std::uint8_t*>(end), 0, at + bytes - end);
}

KeepFreedBlocks::KeepFreedBlocks() {
    ++kept.keepers;
}

KeepFreedBlocks::~KeepFreedBlocks() {
    if (--kept.keepers == 0) {
        kept.drop();
    }
}

}  // namespace pv::pixel_memory
