#pragma once

#include <filesystem>
#include <memory>
#include <string>

namespace zarvo::test {

// A plain static file server on 127.0.0.1 (an ephemeral port) over one folder, as a web server
// or a CDN edge serves files a packager wrote: files by path, byte ranges, the usual content
// types, 404 for anything else. Files may change while it serves (a live packager's folder).
class StaticFileServer {
public:
    explicit StaticFileServer(const std::filesystem::path& root);
    ~StaticFileServer();
    StaticFileServer(const StaticFileServer&) = delete;
    StaticFileServer& operator=(const StaticFileServer&) = delete;

    // "http://127.0.0.1:<port>" + `path`.
    std::string url(const std::string& path) const;
    // Stops answering: connections are refused from now on.
    void stop();
    // Requests answered so far.
    std::size_t requestCount() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace zarvo::test
