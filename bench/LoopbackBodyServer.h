#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <thread>

#include <httplib.h>

// An httplib server on 127.0.0.1 that answers GET `path` with `length` bytes made by a content
// provider while they are sent, so that large bodies cost no memory.
class LoopbackBodyServer {
public:
    LoopbackBodyServer(std::string path, std::size_t length)
        : path_(std::move(path)), length_(length), chunk_(256 * 1024, 's') {
        server_.set_tcp_nodelay(true);
        // Clients keep their connection open: a short keep-alive lets the server stop soon.
        server_.set_keep_alive_timeout(1);
        server_.Get(path_, [this](const httplib::Request&, httplib::Response& response) {
            response.set_content_provider(
                length_, "video/mp2t",
                [this](std::size_t offset, std::size_t, httplib::DataSink& sink) {
                    return sink.write(chunk_.data(), std::min(chunk_.size(), length_ - offset));
                });
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        listener_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) {
            std::this_thread::yield();
        }
    }
    ~LoopbackBodyServer() {
        server_.stop();
        listener_.join();
    }
    LoopbackBodyServer(const LoopbackBodyServer&) = delete;
    LoopbackBodyServer& operator=(const LoopbackBodyServer&) = delete;

    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + path_; }
    const std::string& path() const { return path_; }
    int port() const { return port_; }

private:
    const std::string path_;
    const std::size_t length_;
    const std::string chunk_;
    httplib::Server server_;
    int port_ = -1;
    std::thread listener_;
};
