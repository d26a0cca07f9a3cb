#include "zarvo/hls/SegmentArena.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <sys/mman.h>

namespace zarvo {
namespace {

constexpr std::size_t hugePage = std::size_t{2} << 20;
constexpr std::size_t largestBlock = std::size_t{8} << 20;

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
    std::size_t size = std::max(nextBlockSize_, atLeast);
    nextBlockSize_ = std::min(nextBlockSize_ * 4, largestBlock);
    // Large blocks are whole huge pages, so that all of a block can be one.
    const bool huge = size >= hugePage;
    std::size_t alignment = alignof(std::max_align_t);
    if (huge) {
        size = (size + hugePage - 1) & ~(hugePage - 1);
        alignment = hugePage;
    }
    Block block(static_cast<std::byte*>(::operator new[](size, std::align_val_t{alignment})),
                BlockDeleter{alignment});
    next_ = block.get();
    blocks_.push_back(std::move(block));
    left_ = size;
    reserved_ += size;
    if (huge) {
        // Advice only: where the kernel does not follow it, nothing changes.
        ::madvise(next_, size, MADV_HUGEPAGE);
    }
}

void SegmentArena::BlockDeleter::operator()(std::byte* block) const noexcept {
    ::operator delete[](block, std::align_val_t{alignment});
}

}  // namespace zarvo
