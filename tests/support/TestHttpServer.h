#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zarvo::test {

// A scriptable HTTP server on 127.0.0.1 with an ephemeral port, for tests of network code.
class TestHttpServer {
public:
    struct Request {
        std::string method;
        std::string path;      // without the query
        std::string rawQuery;  // as sent, without "?"
        std::vector<std::pair<std::string, std::string>> headers;
        std::string body;
        std::optional<std::string> header(const std::string& name) const;  // case-insensitive
    };

    // Text, JSON and XML bodies go compressed when the client accepts an encoding.
    struct Response {
        int status = 200;
        std::vector<std::pair<std::string, std::string>> headers;
        std::string body;
        std::string contentType = "text/plain";
        double delaySeconds = 0;      // wait before answering
        bool dropConnection = false;  // close the socket without an answer
        bool endless = false;         // send the body over and over, chunked, until the client goes
        std::optional<std::string> redirectTo;  // answer 302 with this Location

        static Response text(std::string body, int status = 200);
        static Response redirect(std::string location);
        static Response dropped();
    };

    using Handler = std::function<Response(const Request&)>;

    TestHttpServer();
    ~TestHttpServer();
    TestHttpServer(const TestHttpServer&) = delete;
    TestHttpServer& operator=(const TestHttpServer&) = delete;

    int port() const;
    std::string baseUrl() const;  // "http://127.0.0.1:<port>"
    std::string url(const std::string& pathAndQuery) const;

    // Answers requests for `path` (any method) with the handler or a fixed response.
    // Unknown paths answer 404.
    void on(const std::string& path, Handler handler);
    void on(const std::string& path, Response response);

    // Every request received so far, in order of arrival.
    std::vector<Request> requests() const;
    std::size_t requestCount(const std::string& path) const;
    // Blocks the calling thread (without running its loop) until `count` requests for `path`
    // have arrived, or `timeout` has passed; whether they arrived.
    bool waitForRequests(const std::string& path, std::size_t count,
                         std::chrono::milliseconds timeout) const;
    // Number of TCP connections accepted (to test keep-alive reuse).
    std::size_t connectionCount() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace zarvo::test
