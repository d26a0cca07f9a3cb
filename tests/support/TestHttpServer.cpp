#include "support/TestHttpServer.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <list>
#include <string>
#include <thread>

#include <httplib.h>

#include "zarvo/platform/AsciiText.h"
#include "zarvo/platform/TcpConnections.h"

namespace zarvo::test {
namespace {

// httplib hands every accepted connection to its task queue: running each on a thread of
// its own counts connections and lets any number of them be open at once.
class ConnectionThreads : public httplib::TaskQueue {
public:
    explicit ConnectionThreads(std::atomic<std::size_t>& accepted) : accepted_(accepted) {}

    void enqueue(std::function<void()> connection) override {
        accepted_.fetch_add(1);
        std::lock_guard lock(mutex_);
        joinFinished();
        auto done = std::make_shared<std::atomic<bool>>(false);
        std::thread thread([connection = std::move(connection), done] {
            connection();
            done->store(true);
        });
        workers_.push_back({std::move(thread), std::move(done)});
    }

    void shutdown() override {
        std::list<Worker> workers;
        {
            std::lock_guard lock(mutex_);
            workers.swap(workers_);
        }
        for (auto& worker : workers) {
            worker.thread.join();
        }
    }

private:
    struct Worker {
        std::thread thread;
        std::shared_ptr<std::atomic<bool>> done;
    };

    void joinFinished() {
        for (auto it = workers_.begin(); it != workers_.end();) {
            if (it->done->load()) {
                it->thread.join();
                it = workers_.erase(it);
            } else {
                ++it;
            }
        }
    }

    std::atomic<std::size_t>& accepted_;
    std::mutex mutex_;
    std::list<Worker> workers_;
};

}  // namespace

struct TestHttpServer::Impl {
    httplib::Server server;
    std::thread listener;
    int port = -1;
    std::atomic<std::size_t> connections{0};

    mutable std::mutex mutex;
    std::condition_variable stopSignal;
    mutable std::condition_variable arrived;  // a request was logged
    bool stopping = false;
    std::map<std::string, Handler> routes;
    std::vector<Request> log;

    void handle(const httplib::Request& in, httplib::Response& out);
    // Waits out a scripted delay; returns early when the server stops.
    void wait(double seconds);
};

void TestHttpServer::Impl::handle(const httplib::Request& in, httplib::Response& out) {
    Request request;
    request.method = in.method;
    request.path = in.path;
    auto question = in.target.find('?');
    if (question != std::string::npos) {
        request.rawQuery = in.target.substr(question + 1);
    }
    request.headers.assign(in.headers.begin(), in.headers.end());
    request.body = in.body;

    Handler handler;
    {
        std::lock_guard lock(mutex);
        log.push_back(request);
        arrived.notify_all();
        auto route = routes.find(request.path);
        if (route != routes.end()) {
            handler = route->second;
        }
    }
    Response response = handler ? handler(request) : Response::text("Not Found", 404);

    if (response.delaySeconds > 0) {
        wait(response.delaySeconds);
    }
    if (response.dropConnection) {
        TcpConnections::shutDown(in.local_port, in.remote_port);
        return;
    }
    out.status = response.status;
    if (response.redirectTo) {
        if (out.status < 300 || out.status > 399) {
            out.status = 302;
        }
        out.set_header("Location", *response.redirectTo);
    }
    bool hasContentType = false;
    for (const auto& [name, value] : response.headers) {
        hasContentType = hasContentType || ascii::equalsIgnoringCase(name, "Content-Type");
        out.headers.emplace(name, value);
    }
    if (!hasContentType && !response.contentType.empty()) {
        out.set_header("Content-Type", response.contentType);
    }
    if (response.endless) {
        out.set_chunked_content_provider(
            response.contentType,
            [this, body = std::move(response.body)](std::size_t, httplib::DataSink& sink) {
                {
                    std::lock_guard lock(mutex);
                    if (stopping) {
                        return false;
                    }
                }
                return sink.write(body.data(), body.size());
            });
        return;
    }
    out.body = std::move(response.body);
}

void TestHttpServer::Impl::wait(double seconds) {
    std::unique_lock lock(mutex);
    stopSignal.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return stopping; });
}

std::optional<std::string> TestHttpServer::Request::header(const std::string& name) const {
    for (const auto& [key, value] : headers) {
        if (ascii::equalsIgnoringCase(key, name)) {
            return value;
        }
    }
    return std::nullopt;
}

TestHttpServer::Response TestHttpServer::Response::text(std::string body, int status) {
    Response response;
    response.status = status;
    response.body = std::move(body);
    return response;
}

TestHttpServer::Response TestHttpServer::Response::redirect(std::string location) {
    Response response;
    response.status = 302;
    response.redirectTo = std::move(location);
    response.contentType.clear();
    return response;
}

TestHttpServer::Response TestHttpServer::Response::dropped() {
    Response response;
    response.dropConnection = true;
    return response;
}

TestHttpServer::TestHttpServer() : impl_(std::make_unique<Impl>()) {
    Impl& impl = *impl_;
    // httplib deletes the queue it asks for when it stops listening.
    impl.server.new_task_queue = [&impl] {
        return std::make_unique<ConnectionThreads>(impl.connections).release();
    };
    impl.server.set_tcp_nodelay(true);
    impl.server.set_keep_alive_max_count(1'000'000);
    impl.server.set_keep_alive_timeout(60);
    auto handler = [&impl](const httplib::Request& in, httplib::Response& out) {
        impl.handle(in, out);
    };
    impl.server.Get(".*", handler);
    impl.server.Post(".*", handler);
    impl.server.Put(".*", handler);
    impl.server.Patch(".*", handler);
    impl.server.Delete(".*", handler);
    impl.server.Options(".*", handler);
    impl.port = impl.server.bind_to_any_port("127.0.0.1");
    if (impl.port > 0) {
        impl.listener = std::thread([&impl] { impl.server.listen_after_bind(); });
        // stop() only takes effect once the accept loop runs, so wait for it.
        while (!impl.server.is_running()) {
            std::this_thread::yield();
        }
    }
}

TestHttpServer::~TestHttpServer() {
    {
        std::lock_guard lock(impl_->mutex);
        impl_->stopping = true;
    }
    impl_->stopSignal.notify_all();
    impl_->server.stop();
    // Connections idling in keep-alive would otherwise hold the server until their time-out.
    TcpConnections::shutDown(impl_->port);
    if (impl_->listener.joinable()) {
        impl_->listener.join();
    }
}

int TestHttpServer::port() const {
    return impl_->port;
}

std::string TestHttpServer::baseUrl() const {
    return "http://127.0.0.1:" + std::to_string(impl_->port);
}

std::string TestHttpServer::url(const std::string& pathAndQuery) const {
    if (!pathAndQuery.empty() && pathAndQuery.front() != '/') {
        return baseUrl() + "/" + pathAndQuery;
    }
    return baseUrl() + pathAndQuery;
}

void TestHttpServer::on(const std::string& path, Handler handler) {
    std::lock_guard lock(impl_->mutex);
    impl_->routes[path] = std::move(handler);
}

void TestHttpServer::on(const std::string& path, Response response) {
    on(path, [response](const Request&) { return response; });
}

std::vector<TestHttpServer::Request> TestHttpServer::requests() const {
    std::lock_guard lock(impl_->mutex);
    return impl_->log;
}

std::size_t TestHttpServer::requestCount(const std::string& path) const {
    std::lock_guard lock(impl_->mutex);
    return static_cast<std::size_t>(
        std::count_if(impl_->log.begin(), impl_->log.end(),
                      [&](const Request& request) { return request.path == path; }));
}

bool TestHttpServer::waitForRequests(const std::string& path, std::size_t count,
                                     std::chrono::milliseconds timeout) const {
    std::unique_lock lock(impl_->mutex);
    return impl_->arrived.wait_for(lock, timeout, [&] {
        return static_cast<std::size_t>(std::count_if(
                   impl_->log.begin(), impl_->log.end(),
                   [&](const Request& request) { return request.path == path; })) >= count;
    });
}

std::size_t TestHttpServer::connectionCount() const {
    return impl_->connections.load();
}

}  // namespace zarvo::test
