#include "zarvo/media/loopback/ResourceServer.h"

#include <condition_variable>
#include <csignal>
#include <deque>
#include <map>
#include <mutex>
#include <pthread.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <thread>

#include <httplib.h>

#include "zarvo/media/loopback/ResourceSession.h"
#include "zarvo/platform/FatalError.h"
#include "zarvo/platform/Immortal.h"

namespace zarvo {

namespace {

// Workers that answer requests. SIGPIPE is blocked on them: a write to a connection the
// pipeline closed fails with EPIPE instead of killing the process.
class QuietThreadPool : public httplib::TaskQueue {
public:
    explicit QuietThreadPool(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            threads_.emplace_back([this] { work(); });
        }
    }
    ~QuietThreadPool() override { shutdown(); }

    void enqueue(std::function<void()> task) override {
        {
            std::lock_guard lock(mutex_);
            tasks_.push_back(std::move(task));
        }
        ready_.notify_one();
    }

    void shutdown() override {
        {
            std::lock_guard lock(mutex_);
            if (stopping_) {
                return;
            }
            stopping_ = true;
        }
        ready_.notify_all();
        for (auto& thread : threads_) {
            if (thread.joinable()) {
                thread.join();
            }
        }
    }

    static void blockSigpipe() {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &set, nullptr);
    }

private:
    void work() {
        blockSigpipe();
        for (;;) {
            std::function<void()> task;
            {
                std::unique_lock lock(mutex_);
                ready_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
                if (tasks_.empty()) {
                    return;
                }
                task = std::move(tasks_.front());
                tasks_.pop_front();
            }
            task();
        }
    }

    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<std::function<void()>> tasks_;
    std::vector<std::thread> threads_;
    bool stopping_ = false;
};

// Each keep-alive connection holds a worker while it stays open, and a key request may wait
// for the application: leave room for several players at once.
constexpr std::size_t workerCount = 32;

std::string randomToken() {
    unsigned char bytes[16];
    std::size_t filled = 0;
    while (filled < sizeof bytes) {
        const ssize_t got = getrandom(bytes + filled, sizeof bytes - filled, 0);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            fatalError("The system gives no random bytes for resource tokens.");
        }
        filled += static_cast<std::size_t>(got);
    }
    static constexpr char digits[] = "0123456789abcdef";
    std::string token;
    for (unsigned char byte : bytes) {
        token.push_back(digits[byte >> 4]);
        token.push_back(digits[byte & 0x0f]);
    }
    return token;
}

// "/<token>/<reference>/<name>": the token and the reference, or nothing for any other path.
std::optional<std::pair<std::string_view, std::string_view>> splitPath(std::string_view path) {
    constexpr std::size_t tokenLength = 32;
    if (path.size() < tokenLength + 2 || path[0] != '/' || path[tokenLength + 1] != '/') {
        return std::nullopt;
    }
    const std::string_view token = path.substr(1, tokenLength);
    if (token.find_first_not_of("0123456789abcdef") != std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view rest = path.substr(tokenLength + 2);
    const auto slash = rest.find('/');
    if (slash == std::string_view::npos || slash == 0 ||
        rest.find('/', slash + 1) != std::string_view::npos) {
        return std::nullopt;
    }
    return std::pair(token, rest.substr(0, slash));
}

}  // namespace

struct ResourceServer::Impl {
    std::mutex mutex;
    httplib::Server server;
    std::thread listener;
    int port = 0;
    std::map<std::string, std::weak_ptr<ResourceSession>> sessions;

    void start() {
        server.new_task_queue = [] {
            return new QuietThreadPool(workerCount);
        };
        // One request per connection: the server polls an idle kept-alive connection about
        // a hundred times a second, which costs more CPU over a playback than a new loopback
        // connection per request does.
        server.set_keep_alive_max_count(1);
        // Heads and bodies go out in separate writes: without this a small body waits for the
        // client's delayed acknowledgement of the head (about 40 ms).
        server.set_tcp_nodelay(true);
        // A send buffer larger than the kernel's starting size lets a 512 KiB block of a segment
        // go out in one call while the pipeline is still reading the last one (about 7% more
        // throughput on a 100 MB segment). Accepted connections take it from the listener.
        server.set_socket_options([](int socket) {
            const int yes = 1;
            setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
            const int sendBuffer = 4 << 20;
            setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
        });
        // Every request is answered here, before httplib reads a body or routes: only GET and
        // HEAD of a known token and reference get further than a look-up.
        server.set_pre_routing_handler(
            [this](const httplib::Request& request, httplib::Response& response) {
                route(request, response);
                return httplib::Server::HandlerResponse::Handled;
            });
        port = server.bind_to_any_port("127.0.0.1");
        if (port <= 0) {
            fatalError("The media resource server cannot listen on 127.0.0.1.");
        }
        listener = std::thread([this] {
            QuietThreadPool::blockSigpipe();
            server.listen_after_bind();
        });
    }

    void route(const httplib::Request& request, httplib::Response& response) {
        if (request.method != "GET" && request.method != "HEAD") {
            response.status = 405;
            response.set_header("Allow", "GET, HEAD");
            return;
        }
        const auto parts = splitPath(request.path);
        std::shared_ptr<ResourceSession> session;
        if (parts) {
            std::lock_guard lock(mutex);
            auto found = sessions.find(std::string(parts->first));
            if (found != sessions.end()) {
                session = found->second.lock();
            }
        }
        if (!session) {
            response.status = 404;
            return;
        }
        session->handle(request, response, parts->second);
    }
};

ResourceServer& ResourceServer::shared() {
    static Immortal<ResourceServer> server;
    return server.get();
}

ResourceServer::ResourceServer() : impl_(std::make_unique<Impl>()) {}

ResourceServer::~ResourceServer() {
    if (impl_->listener.joinable()) {
        impl_->server.stop();
        impl_->listener.join();
    }
}

std::string ResourceServer::baseUrl() {
    std::lock_guard lock(impl_->mutex);
    if (!impl_->listener.joinable()) {
        impl_->start();
    }
    return "http://127.0.0.1:" + std::to_string(impl_->port);
}

std::string ResourceServer::newToken() {
    return randomToken();
}

void ResourceServer::add(const std::string& token, const std::weak_ptr<ResourceSession>& session) {
    std::lock_guard lock(impl_->mutex);
    impl_->sessions[token] = session;
}

void ResourceServer::remove(const std::string& token) {
    std::lock_guard lock(impl_->mutex);
    impl_->sessions.erase(token);
}

}  // namespace zarvo
