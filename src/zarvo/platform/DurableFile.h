#pragma once

#include <cstddef>
#include <filesystem>
#include <system_error>
#include <variant>

namespace zarvo {

// A file made whole before it takes its place: written under a temporary name beside its
// place, its bytes synced to disk, then renamed into place and its folder synced. Neither a
// killed process nor a power cut leaves a short file under the place's name: the place keeps
// what it had until commit() returns. A writer dropped without commit() removes its temporary
// file; one a dead process left behind goes with removeLeftovers().
class DurableFile {
public:
    static constexpr const char* temporarySuffix = ".partial";

    // An empty temporary file for `path`, with permission bits `mode` whatever the umask.
    static std::variant<DurableFile, std::error_code> create(const std::filesystem::path& path,
                                                             std::filesystem::perms mode);
    // Writes `length` bytes whole at `path`.
    static std::error_code writeWhole(const std::filesystem::path& path, const char* data,
                                      std::size_t length, std::filesystem::perms mode);
    // Syncs a folder's entries (a file renamed into it, a folder made in it).
    static std::error_code syncFolder(const std::filesystem::path& folder);
    // Removes the temporary files left under `folder` (and its folders) by writers that never
    // committed, such as those of a process that was killed.
    static void removeLeftovers(const std::filesystem::path& folder);

    DurableFile(DurableFile&& other) noexcept;
    DurableFile& operator=(DurableFile&&) = delete;
    DurableFile(const DurableFile&) = delete;
    ~DurableFile();

    // Appends every byte; the system's error when it cannot (a full disk is ENOSPC).
    std::error_code write(const char* data, std::size_t length);
    // Drops what was written, to start over.
    std::error_code restart();
    // Syncs the bytes written so far to disk.
    std::error_code sync();
    // Syncs the bytes, renames the file into its place and syncs the folder. The writer is
    // done whatever the result; on an error the place keeps what it had.
    std::error_code commit();

    std::size_t size() const { return size_; }

private:
    DurableFile(std::filesystem::path path, std::filesystem::path temporary, int fd)
        : path_(std::move(path)), temporary_(std::move(temporary)), fd_(fd) {}
    void discard();

    std::filesystem::path path_;
    std::filesystem::path temporary_;
    int fd_ = -1;
    std::size_t size_ = 0;
};

}  // namespace zarvo
