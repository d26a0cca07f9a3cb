#pragma once

#include <memory>
#include <string>

namespace zarvo {

class ResourceSession;

// The process's loopback HTTP server through which the pipeline loads everything it plays:
// 127.0.0.1 only, on an ephemeral port, started on first use. Each playback registers a
// session under a random 128-bit token; a path is "/<token>/<reference>/<name>", answered by
// the session its token names for the reference it wrote. Any other path, or an unknown token,
// gets 404, and any method but GET and HEAD 405, before a body is read. One thread reads every
// request head (bounded in size and fields, with idle and overall time-outs: see
// LoopbackListener); whole heads go to a bounded queue of worker threads, one answer per
// connection. A pipeline that hangs up mid-answer fails a write; it cannot kill the process.
class ResourceServer {
public:
    // The name of every thread the server runs, its listener and its workers alike (as top,
    // perf and /proc show it): what the server costs is told apart from the pipeline's work.
    static constexpr const char* threadName = "zm-resources";

    static ResourceServer& shared();

    // "http://127.0.0.1:<port>"; starts the server if needed.
    std::string baseUrl();
    // A new random token for a session.
    static std::string newToken();
    // Registers `session` under `token`: from now on requests reach it. The server holds it
    // weakly.
    void add(const std::string& token, const std::weak_ptr<ResourceSession>& session);
    void remove(const std::string& token);

    ResourceServer();
    ~ResourceServer();
    ResourceServer(const ResourceServer&) = delete;
    ResourceServer& operator=(const ResourceServer&) = delete;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace zarvo
