#include "support/StaticFileServer.h"

#include <atomic>
#include <thread>

#include <httplib.h>

#include "zarvo/platform/TcpConnections.h"

namespace zarvo::test {

struct StaticFileServer::Impl {
    httplib::Server server;
    std::thread listener;
    int port = -1;
    std::atomic<std::size_t> requests{0};
};

StaticFileServer::StaticFileServer(const std::filesystem::path& root)
    : impl_(std::make_unique<Impl>()) {
    Impl& impl = *impl_;
    impl.server.set_mount_point("/", root.string());
    // The types a web server's usual table gives HLS files.
    impl.server.set_file_extension_and_mimetype_mapping("m3u8", "application/vnd.apple.mpegurl");
    impl.server.set_file_extension_and_mimetype_mapping("ts", "video/mp2t");
    impl.server.set_file_extension_and_mimetype_mapping("m4s", "video/iso.segment");
    impl.server.set_file_extension_and_mimetype_mapping("mp4", "video/mp4");
    impl.server.set_file_extension_and_mimetype_mapping("vtt", "text/vtt");
    impl.server.set_logger(
        [&impl](const httplib::Request&, const httplib::Response&) { ++impl.requests; });
    impl.port = impl.server.bind_to_any_port("127.0.0.1");
    if (impl.port > 0) {
        impl.listener = std::thread([&impl] { impl.server.listen_after_bind(); });
        // stop() only takes effect once the accept loop runs, so wait for it.
        while (!impl.server.is_running()) {
            std::this_thread::yield();
        }
    }
}

StaticFileServer::~StaticFileServer() {
    stop();
}

void StaticFileServer::stop() {
    if (!impl_->listener.joinable()) {
        return;
    }
    impl_->server.stop();
    // Connections idling in keep-alive would otherwise hold the server until their time-out.
    TcpConnections::shutDown(impl_->port);
    impl_->listener.join();
}

std::string StaticFileServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(impl_->port) + path;
}

std::size_t StaticFileServer::requestCount() const {
    return impl_->requests.load();
}

}  // namespace zarvo::test
