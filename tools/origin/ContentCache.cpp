#include "origin/ContentCache.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "origin/ToolRun.h"

namespace zarvo::origin {

namespace fs = std::filesystem;

namespace {

// An exclusive flock on a file, held for the object's lifetime.
class FileLock {
public:
    explicit FileLock(const fs::path& path)
        : fd_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
        if (fd_ >= 0) {
            while (flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
            }
        }
    }
    ~FileLock() {
        if (fd_ >= 0) {
            ::close(fd_);  // closing releases the lock
        }
    }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    bool locked() const { return fd_ >= 0; }

private:
    int fd_;
};

}  // namespace

fs::path ContentCache::defaultRoot() {
    if (const char* root = std::getenv("ZM_ORIGIN_CACHE"); root && *root) {
        return root;
    }
    if (const char* xdg = std::getenv("XDG_CACHE_HOME"); xdg && *xdg) {
        return fs::path(xdg) / "zarvo" / "origin";
    }
    const char* home = std::getenv("HOME");
    return fs::path(home && *home ? home : "/tmp") / ".cache" / "zarvo" / "origin";
}

std::string ContentCache::hash(const std::string& text) {
    std::uint64_t hash = 14695981039346656037ULL;
    for (unsigned char c : text) {
        hash = (hash ^ c) * 1099511628211ULL;
    }
    char hex[17];
    std::snprintf(hex, sizeof hex, "%016llx", static_cast<unsigned long long>(hash));
    return hex;
}

std::variant<fs::path, Error> ContentCache::prepare(const fs::path& root, const std::string& name,
                                                    const std::string& marker,
                                                    const Generate& generate) {
    std::error_code error;
    fs::create_directories(root, error);
    if (error) {
        return contentError("Cannot create the content cache " + root.string() + ": " +
                            error.message());
    }
    const fs::path finished = root / name;
    FileLock lock(root / (name + ".lock"));
    if (!lock.locked()) {
        return contentError("Cannot lock the content cache " + root.string() + ".");
    }
    if (fs::exists(finished / marker, error)) {
        return finished;
    }
    const fs::path partial = root / (name + ".partial-" + std::to_string(getpid()));
    fs::remove_all(partial, error);
    if (auto failed = generate(partial)) {
        fs::remove_all(partial, error);
        return *failed;
    }
    fs::remove_all(finished, error);
    fs::rename(partial, finished, error);
    if (error) {
        fs::remove_all(partial, error);
        return contentError("Cannot move the content into " + finished.string() + ".");
    }
    return finished;
}

}  // namespace zarvo::origin
