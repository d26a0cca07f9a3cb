#include "zarvo/media/loopback/ResourceServer.h"

#include <condition_variable>
#include <csignal>
#include <deque>
#include <map>
#include <mutex>
#include <pthread.h>
#include <sys/random.h>
#include <thread>
#include <vector>

#include "zarvo/media/loopback/LoopbackListener.h"
#include "zarvo/media/loopback/ResourceSession.h"
#include "zarvo/platform/FatalError.h"
#include "zarvo/platform/Immortal.h"

namespace zarvo {

namespace {

// The threads that answer requests whose heads have arrived. A segment's answer holds its
// thread while it streams, and a key request may wait for the application: there is room for
// several players at once. A thread is started when a request finds none idle, up to the
// limit, and then stays: a player keeps a handful busy, not the limit. Requests beyond the
// queue's bound are refused (503) rather than kept. SIGPIPE is blocked on the threads, for the
// curl transfers they run; each carries ResourceServer::threadName.
class Workers {
public:
    using Task = std::function<void()>;
    Workers(std::size_t limit, std::size_t queueBound) : limit_(limit), queueBound_(queueBound) {}
    ~Workers() {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
            tasks_.clear();
        }
        ready_.notify_all();
        for (auto& thread : threads_) {
            thread.join();
        }
    }

    // False when the queue is full.
    bool enqueue(Task task) {
        bool wake = false;
        {
            std::lock_guard lock(mutex_);
            if (stopping_ || tasks_.size() >= queueBound_) {
                return false;
            }
            tasks_.push_back(std::move(task));
            if (idle_ >= tasks_.size() || threads_.size() >= limit_) {
                wake = true;
            } else {
                threads_.emplace_back([this] { work(); });
            }
        }
        if (wake) {
            ready_.notify_one();
        }
        return true;
    }

private:
    void work() {
        pthread_setname_np(pthread_self(), ResourceServer::threadName);
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &set, nullptr);
        for (;;) {
            Task task;
            {
                std::unique_lock lock(mutex_);
                ++idle_;
                ready_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
                --idle_;
                if (stopping_) {
                    return;
                }
                task = std::move(tasks_.front());
                tasks_.pop_front();
            }
            task();
        }
    }

    const std::size_t limit_;
    const std::size_t queueBound_;
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<Task> tasks_;
    std::vector<std::thread> threads_;
    std::size_t idle_ = 0;  // threads waiting for a task
    bool stopping_ = false;
};

constexpr std::size_t workerCount = 32;
// How long an answer that is read before it counts, or kept until then, waits for its client
// to hang up.
constexpr int hangUpLimitMs = 500;
constexpr std::size_t queuedRequests = 256;

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
    std::map<std::string, std::weak_ptr<ResourceSession>> sessions;
    // Workers before the listener: the listener hands them work until it stops.
    std::unique_ptr<Workers> workers;
    std::unique_ptr<LoopbackListener> listener;
    int port = 0;

    void start() {
        workers = std::make_unique<Workers>(workerCount, queuedRequests);
        listener = std::make_unique<LoopbackListener>(
            [this](std::unique_ptr<LoopbackConnection> connection, HttpRequestHead head) {
                dispatch(std::move(connection), std::move(head));
            },
            LoopbackListener::Limits{}, ResourceServer::threadName);
        port = listener->start();
        if (port <= 0) {
            fatalError("The media resource server cannot listen on 127.0.0.1.");
        }
    }

    // On the listener's thread: only GET and HEAD go further, and then to a worker.
    void dispatch(std::unique_ptr<LoopbackConnection> connection, HttpRequestHead head) {
        if (head.method != "GET" && head.method != "HEAD") {
            connection->refuse(405);
            return;
        }
        auto shared = std::shared_ptr<LoopbackConnection>(std::move(connection));
        auto request = std::make_shared<HttpRequestHead>(std::move(head));
        if (!workers->enqueue([this, shared, request] { answer(*shared, *request); })) {
            shared->refuse(503);
        }
    }

    void answer(LoopbackConnection& connection, const HttpRequestHead& head) {
        LoopbackResponse response;
        const auto parts = splitPath(head.path());
        std::shared_ptr<ResourceSession> session;
        if (parts) {
            std::lock_guard lock(mutex);
            auto found = sessions.find(std::string(parts->first));
            if (found != sessions.end()) {
                session = found->second.lock();
            }
            // Counted while the session is still listed: once it is closed and gone from the
            // list, no answer of it that was not counted is under way.
            if (session) {
                session->answerBegan();
            }
        }
        if (!session) {
            response.send(connection, head.method == "HEAD");
            return;
        }
        session->handle(response, parts->second);
        if (!response.readBeforeDone) {
            // A segment's body may wait for room in a paused pipeline: it is not waited for.
            session->answerEnded();
            if (response.send(connection, head.method == "HEAD") && response.keptUntilHangUp) {
                connection.awaitHangUp(hangUpLimitMs);
            }
            return;
        }
        if (response.send(connection, head.method == "HEAD")) {
            connection.awaitHangUp(hangUpLimitMs);
        }
        session->answerEnded();
    }
};

ResourceServer& ResourceServer::shared() {
    static Immortal<ResourceServer> server;
    return server.get();
}

ResourceServer::ResourceServer() : impl_(std::make_unique<Impl>()) {}

ResourceServer::~ResourceServer() {
    impl_->listener.reset();
    impl_->workers.reset();
}

std::string ResourceServer::baseUrl() {
    std::lock_guard lock(impl_->mutex);
    if (!impl_->listener) {
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
