#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace zarvo {

// Memory for the segments of one parsed media playlist: blocks that grow geometrically (from
// 4 KiB, four times larger each, up to 8 MiB) and are handed out front to back. Nothing is freed
// on its own; the blocks go together when the arena does, which Allocator arranges to be when the
// last segment built in it goes. Large blocks are aligned to and ask for transparent huge pages,
// which spares a page fault per 4 KiB when a long playlist fills them. One thread allocates;
// segments may be released on any.
class SegmentArena {
public:
    SegmentArena() = default;
    SegmentArena(const SegmentArena&) = delete;
    SegmentArena& operator=(const SegmentArena&) = delete;

    void* allocate(std::size_t bytes, std::size_t alignment);
    // Bytes of the blocks taken so far.
    std::size_t reservedBytes() const { return reserved_; }

    // A standard allocator over a shared arena that it keeps alive; deallocation does nothing.
    template <class T>
    class Allocator {
    public:
        using value_type = T;
        explicit Allocator(std::shared_ptr<SegmentArena> arena) : arena_(std::move(arena)) {}
        template <class U>
        Allocator(const Allocator<U>& other) : arena_(other.arena()) {}
        T* allocate(std::size_t count) {
            return static_cast<T*>(arena_->allocate(count * sizeof(T), alignof(T)));
        }
        void deallocate(T*, std::size_t) noexcept {}
        const std::shared_ptr<SegmentArena>& arena() const { return arena_; }
        template <class U>
        bool operator==(const Allocator<U>& other) const {
            return arena_ == other.arena();
        }

    private:
        std::shared_ptr<SegmentArena> arena_;
    };

private:
    struct BlockDeleter {
        std::size_t alignment;
        void operator()(std::byte* block) const noexcept;
    };
    using Block = std::unique_ptr<std::byte[], BlockDeleter>;

    void addBlock(std::size_t atLeast);

    std::vector<Block> blocks_;
    std::byte* next_ = nullptr;
    std::size_t left_ = 0;
    std::size_t nextBlockSize_ = 4 * 1024;
    std::size_t reserved_ = 0;
};

}  // namespace zarvo
