#include "zarvo/hls/SegmentArena.h"

#include <algorithm>
#include <cstdint>
#include <sys/mman.h>

namespace zarvo {
namespace {

constexpr std::size_t hugePage = std::size_t{2} << 20;
constexpr std::size_t largestBlock = std::size_t{8} << 20;

// Asks for huge pages over the whole huge pages inside a block; advice only, so a kernel that
// does not follow it changes nothing.
void adviseHugePages(std::byte* block, std::size_t size) {
    const auto begin = reinterpret_cast<std::uintptr_t>(block);
    const std::uintptr_t first = (begin + hugePage - 1) & ~(hugePage - 1);
    const std::uintptr_t last = (begin + size) & ~(hugePage - 1);
    if (last > first) {
        ::madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
    }
}

}  // namespace

void* SegmentArena::allocate(std::size_t bytes, std::size_t alignment) {
    auto padding = [&] {
        return (alignment - reinterpret_cast<std::uintptr_t>(next_) % alignment) % alignment;
    };
    if (left_ < bytes || left_ - bytes < padding()) {
        addBlock(bytes + alignment);
    }
    const std::size_t skip = padding();
    std::byte* result = next_ + skip;
    next_ = result + bytes;
    left_ -= skip + bytes;
    return result;
}

void SegmentArena::addBlock(std::size_t atLeast) {
    const std::size_t size = std::max(nextBlockSize_, atLeast);
    nextBlockSize_ = std::min(nextBlockSize_ * 2, largestBlock);
    blocks_.push_back(std::make_unique_for_overwrite<std::byte[]>(size));
    next_ = blocks_.back().get();
    left_ = size;
    reserved_ += size;
    if (size >= 2 * hugePage) {
        adviseHugePages(next_, size);
    }
}

}  // namespace zarvo
