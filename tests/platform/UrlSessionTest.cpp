#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/DispatchSemaphore.h"
#include "zarvo/platform/ManualScheduler.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/platform/UrlError.h"
#include "zarvo/platform/UrlSession.h"

#include "support/TestHttpServer.h"

namespace zarvo {
namespace {

using test::TestHttpServer;
using namespace std::chrono_literals;

constexpr auto safetyTimeout = 20s;

struct Outcome {
    std::optional<Data> data;
    std::optional<HttpUrlResponse> response;
    std::optional<Error> error;
    bool ranOnDelegateQueue = false;
};

// Starts a task; the future gets its outcome.
std::future<Outcome> start(UrlSession& session, UrlRequest request) {
    auto promise = std::make_shared<std::promise<Outcome>>();
    auto future = promise->get_future();
    auto queue = session.delegateQueue();
    session
        .dataTask(std::move(request),
                  [promise, queue](auto data, auto response, auto error) {
                      promise->set_value({std::move(data), std::move(response), std::move(error),
                                          queue->isCurrent()});
                  })
        ->resume();
    return future;
}

// Runs a task and waits (with a safety time-out) for its completion.
Outcome fetch(UrlSession& session, UrlRequest request) {
    auto future = start(session, std::move(request));
    if (future.wait_for(safetyTimeout) != std::future_status::ready) {
        ADD_FAILURE() << "the task did not complete";
        return {};
    }
    return future.get();
}

Url urlOf(const std::string& text) {
    auto url = Url::parse(text);
    EXPECT_TRUE(url) << text;
    return url.value_or(Url::fileUrl("/"));
}

// A TCP socket bound to a free loopback port; `port` receives the port.
int boundLoopbackSocket(int& port) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), length), 0);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    port = ntohs(address.sin_port);
    return fd;
}

long errorCode(const Outcome& outcome) {
    return outcome.error ? outcome.error->code() : 0;
}

class UrlSessionTest : public ::testing::Test {
protected:
    TestHttpServer server;
    std::shared_ptr<UrlSession> session =
        UrlSession::make(UrlSessionConfiguration::defaultConfiguration());

    UrlRequest request(const std::string& path) { return UrlRequest(urlOf(server.url(path))); }
};

TEST_F(UrlSessionTest, GetDeliversBodyStatusHeadersAndLengthOnTheDelegateQueue) {
    auto reply = TestHttpServer::Response::text("hello there");
    reply.headers = {{"X-Custom", "one"}};
    reply.contentType = "application/vnd.apple.mpegurl; charset=UTF-8";
    server.on("/hello", reply);
    server.on("/broken", TestHttpServer::Response::text("it broke", 500));

    Outcome outcome = fetch(*session, request("/hello?a=1"));

    ASSERT_FALSE(outcome.error) << outcome.error->description();
    ASSERT_TRUE(outcome.response);
    EXPECT_EQ(*outcome.data, "hello there");
    EXPECT_EQ(outcome.response->statusCode, 200);
    EXPECT_EQ(outcome.response->url.absoluteString(), server.url("/hello?a=1"));
    EXPECT_EQ(outcome.response->value("x-custom"), "one");
    EXPECT_EQ(outcome.response->expectedContentLength, 11);
    EXPECT_EQ(outcome.response->mimeType(), "application/vnd.apple.mpegurl");
    EXPECT_TRUE(outcome.ranOnDelegateQueue);
    ASSERT_EQ(server.requests().size(), 1u);
    EXPECT_EQ(server.requests()[0].rawQuery, "a=1");
    EXPECT_FALSE(server.requests()[0].header("Cache-Control"));

    // Error statuses are responses, not errors; reloads ask caches not to answer.
    UrlRequest reload(urlOf(server.url("/nowhere")),
                      UrlRequest::CachePolicy::reloadIgnoringLocalCacheData);
    EXPECT_EQ(fetch(*session, reload).response->statusCode, 404);
    EXPECT_EQ(server.requests().at(1).header("Cache-Control"), "no-cache");
    Outcome broken = fetch(*session, request("/broken"));
    ASSERT_FALSE(broken.error);
    EXPECT_EQ(broken.response->statusCode, 500);
    EXPECT_EQ(*broken.data, "it broke");
    // Sequential requests reuse one connection.
    EXPECT_EQ(server.connectionCount(), 1u);
}

TEST_F(UrlSessionTest, RedirectsAreFollowedAndTheFinalResponseReported) {
    auto first = TestHttpServer::Response::redirect("/second");
    first.headers = {{"X-First", "yes"}};
    server.on("/first", first);
    server.on("/second", TestHttpServer::Response::redirect(server.url("/final")));
    auto last = TestHttpServer::Response::text("arrived");
    last.headers = {{"X-Final", "yes"}};
    server.on("/final", last);

    Outcome outcome = fetch(*session, request("/first"));

    ASSERT_FALSE(outcome.error);
    EXPECT_EQ(outcome.response->statusCode, 200);
    EXPECT_EQ(outcome.response->url.absoluteString(), server.url("/final"));
    EXPECT_EQ(*outcome.data, "arrived");
    EXPECT_EQ(outcome.response->value("X-Final"), "yes");
    EXPECT_FALSE(outcome.response->value("X-First"));
}

TEST_F(UrlSessionTest, PostSendsBodyAndMergesSessionHeaders) {
    server.on("/licence", TestHttpServer::Response::text("key"));
    UrlSessionConfiguration configuration;
    configuration.httpAdditionalHeaders = {{"X-Session", "session"},
                                           {"Content-Type", "text/plain"}};
    auto configured = UrlSession::make(configuration);
    UrlRequest post = request("/licence");
    post.httpMethod = "POST";
    post.httpBody = std::string("spc\0bytes", 9);
    post.setValue("application/octet-stream", "Content-Type");
    post.setValue("abc", "X-Token");

    Outcome outcome = fetch(*configured, post);

    ASSERT_FALSE(outcome.error);
    EXPECT_EQ(*outcome.data, "key");
    ASSERT_EQ(server.requests().size(), 1u);
    const auto received = server.requests()[0];
    EXPECT_EQ(received.method, "POST");
    EXPECT_EQ(received.body, std::string("spc\0bytes", 9));
    EXPECT_EQ(received.header("content-type"), "application/octet-stream");
    EXPECT_EQ(received.header("X-Token"), "abc");
    EXPECT_EQ(received.header("X-Session"), "session");
}

TEST_F(UrlSessionTest, HeadAndCompressedBodiesReportTheirLengths) {
    auto playlist = TestHttpServer::Response::text("#EXTM3U\n");
    playlist.contentType = "application/vnd.apple.mpegurl";
    server.on("/master.m3u8", playlist);
    UrlRequest head = request("/master.m3u8");
    head.httpMethod = "HEAD";

    Outcome outcome = fetch(*session, head);
    ASSERT_FALSE(outcome.error);
    EXPECT_EQ(outcome.response->statusCode, 200);
    EXPECT_EQ(outcome.response->expectedContentLength, 8);
    ASSERT_TRUE(outcome.data);
    EXPECT_TRUE(outcome.data->empty());
    EXPECT_EQ(server.requests().at(0).method, "HEAD");

    // Compressed bodies arrive decoded, with an unknown length.
    std::string text;
    for (int i = 0; i < 200; ++i) {
        text += "#EXTINF:6.0,\nsegment" + std::to_string(i) + ".ts\n";
    }
    server.on("/media.txt", TestHttpServer::Response::text(text));

    Outcome compressed = fetch(*session, request("/media.txt"));
    ASSERT_FALSE(compressed.error);
    EXPECT_EQ(*compressed.data, text);
    ASSERT_TRUE(compressed.response->value("Content-Encoding"));
    EXPECT_EQ(compressed.response->expectedContentLength, -1);
}

TEST_F(UrlSessionTest, ABodyPastTheRequestsLimitFailsWhetherItsLengthIsAnnouncedOrNot) {
    auto binary = TestHttpServer::Response::text(std::string(1000, 'x'));
    binary.contentType = "application/octet-stream";
    server.on("/thousand", binary);
    auto endless = TestHttpServer::Response::text(std::string(64 * 1024, 'y'));
    endless.endless = true;
    server.on("/endless", endless);

    UrlRequest exact = request("/thousand");
    exact.maximumBodyLength = 1000;
    Outcome whole = fetch(*session, exact);
    ASSERT_FALSE(whole.error) << whole.error->description();
    EXPECT_EQ(whole.data->size(), 1000u);

    UrlRequest under = request("/thousand");
    under.maximumBodyLength = 999;
    EXPECT_EQ(errorCode(fetch(*session, under)), -1103);

    UrlRequest unending = request("/endless");
    unending.maximumBodyLength = 1 << 20;
    Outcome cut = fetch(*session, unending);
    EXPECT_EQ(errorCode(cut), -1103);
    EXPECT_FALSE(cut.data);
}

TEST_F(UrlSessionTest, DroppedConnectionAndTimeOutAreDistinctErrors) {
    server.on("/drop", TestHttpServer::Response::dropped());
    std::promise<void> arrived;
    server.on("/slow", [&](const TestHttpServer::Request&) {
        arrived.set_value();
        auto slow = TestHttpServer::Response::text("late");
        slow.delaySeconds = 600;
        return slow;
    });

    Outcome dropped = fetch(*session, request("/drop"));
    // The default time-out: 60 s without a byte, on the scheduler's clock.
    auto clock = ManualScheduler::create();
    ScopedStandardScheduler useClock(clock);
    auto pending = start(*session, request("/slow"));
    ASSERT_EQ(arrived.get_future().wait_for(safetyTimeout), std::future_status::ready);
    clock->advance(59s);
    clock->advance(1s);
    ASSERT_EQ(pending.wait_for(safetyTimeout), std::future_status::ready);
    Outcome timedOut = pending.get();

    ASSERT_TRUE(dropped.error);
    EXPECT_TRUE(isUrlError(*dropped.error, UrlError::networkConnectionLost))
        << dropped.error->description();
    EXPECT_EQ(dropped.error->domain(), "NSURLErrorDomain");
    EXPECT_EQ(dropped.error->userInfoValue("NSErrorFailingURLStringKey"), server.url("/drop"));
    EXPECT_FALSE(dropped.response);
    ASSERT_TRUE(timedOut.error);
    EXPECT_EQ(errorCode(timedOut), -1001) << timedOut.error->description();
    EXPECT_EQ(timedOut.error->userInfoValue("NSErrorFailingURLStringKey"), server.url("/slow"));
}

TEST_F(UrlSessionTest, RefusedAndTlsFailuresHaveTheirOwnCodes) {
    // A bound socket that does not listen refuses connections, and keeps its port taken.
    int port = 0;
    int fd = boundLoopbackSocket(port);
    std::string url = "http://127.0.0.1:" + std::to_string(port) + "/x";

    EXPECT_EQ(errorCode(fetch(*session, UrlRequest(urlOf(url)))), -1004);
    ::close(fd);

    // TLS against a plain server.
    server.on("/a", TestHttpServer::Response::text("a"));
    std::string tls = "https://127.0.0.1:" + std::to_string(server.port()) + "/a";
    EXPECT_EQ(errorCode(fetch(*session, UrlRequest(urlOf(tls)))),
              static_cast<long>(UrlError::secureConnectionFailed));
}

TEST_F(UrlSessionTest, UnsupportedSchemesFailWithoutARequest) {
    for (const char* text : {"ftp://127.0.0.1/file", "skd://content-id", "file:///etc/hostname"}) {
        Outcome outcome = fetch(*session, UrlRequest(urlOf(text)));
        ASSERT_TRUE(outcome.error) << text;
        EXPECT_TRUE(isUrlError(*outcome.error, UrlError::unsupportedUrl)) << text;
        EXPECT_EQ(outcome.error->userInfoValue("NSErrorFailingURLStringKey"), text);
        EXPECT_TRUE(outcome.ranOnDelegateQueue);
    }
    EXPECT_TRUE(server.requests().empty());
}

// Counts completions of tasks that are cancelled while they run.
struct CompletionCounter {
    UrlSessionDataTask::Completion completion() {
        return [this](auto, auto response, auto error) {
            cancelled += error && isUrlError(*error, UrlError::cancelled) ? 1 : 0;
            answered += response ? 1 : 0;
            ++completions;
            done.signal();
        };
    }
    // Waits until `count` completions in all have arrived.
    bool waitFor(int count) {
        for (; waited < count; ++waited) {
            if (done.wait(20, Scheduler::system()) != DispatchSemaphore::WaitResult::success) {
                return false;
            }
        }
        return true;
    }
    std::atomic<int> completions{0}, cancelled{0}, answered{0};
    DispatchSemaphore done{0};
    int waited = 0;
};

class UrlSessionLifecycleTest : public UrlSessionTest {
protected:
    void SetUp() override {
        auto slow = TestHttpServer::Response::text("late");
        slow.delaySeconds = 60;
        server.on("/slow", slow);
        server.on("/fast", TestHttpServer::Response::text("fast"));
    }
    // Waits until everything queued on the delegate queue so far has run.
    void drainDelegateQueue() {
        session->delegateQueue()->sync([] {});
    }

    CompletionCounter counter;
};

TEST_F(UrlSessionLifecycleTest, CancelDeliversCancelledExactlyOnce) {
    auto task = session->dataTask(request("/slow"), counter.completion());
    EXPECT_EQ(task->state(), UrlSessionDataTask::State::suspended);
    task->resume();
    EXPECT_EQ(task->state(), UrlSessionDataTask::State::running);

    task->cancel();
    task->cancel();
    ASSERT_TRUE(counter.waitFor(1));
    task->cancel();
    task->resume();
    drainDelegateQueue();

    EXPECT_EQ(counter.completions, 1);
    EXPECT_EQ(counter.cancelled, 1);
    EXPECT_EQ(task->state(), UrlSessionDataTask::State::completed);

    // Cancelled before resume: the request is never sent.
    auto early = session->dataTask(request("/fast"), counter.completion());
    early->cancel();
    early->resume();
    ASSERT_TRUE(counter.waitFor(2));
    drainDelegateQueue();
    EXPECT_EQ(counter.cancelled, 2);
    EXPECT_EQ(counter.completions, 2);
    EXPECT_EQ(server.requestCount("/fast"), 0u);
}

TEST_F(UrlSessionLifecycleTest, CancelRacingCompletionStillDeliversOnce) {
    constexpr int count = 40;
    std::vector<std::shared_ptr<UrlSessionDataTask>> tasks;
    for (int i = 0; i < count; ++i) {
        tasks.push_back(session->dataTask(request("/fast"), counter.completion()));
        tasks.back()->resume();
    }
    for (auto& task : tasks) {
        task->cancel();
    }
    ASSERT_TRUE(counter.waitFor(count));
    drainDelegateQueue();

    EXPECT_EQ(counter.completions, count);
    EXPECT_EQ(counter.cancelled + counter.answered, count);
}

TEST_F(UrlSessionLifecycleTest, InvalidateAndCancelStopsRunningAndLaterTasks) {
    auto running = session->dataTask(request("/slow"), counter.completion());
    running->resume();
    auto notYetResumed = session->dataTask(request("/fast"), counter.completion());

    session->invalidateAndCancel();
    auto later = session->dataTask(request("/fast"), counter.completion());
    later->resume();

    ASSERT_TRUE(counter.waitFor(3));
    drainDelegateQueue();
    EXPECT_EQ(counter.cancelled, 3);
    EXPECT_EQ(server.requestCount("/fast"), 0u);
}

TEST_F(UrlSessionLifecycleTest, FinishTasksAndInvalidateLetsRunningTasksFinish) {
    auto quick = TestHttpServer::Response::text("done");
    quick.delaySeconds = 0.2;
    server.on("/quick", quick);
    auto running = session->dataTask(request("/quick"), counter.completion());
    running->resume();

    session->finishTasksAndInvalidate();
    auto later = session->dataTask(request("/fast"), counter.completion());
    later->resume();

    ASSERT_TRUE(counter.waitFor(2));
    EXPECT_EQ(counter.answered, 1);
    EXPECT_EQ(counter.cancelled, 1);

    // Running tasks outlive their session and every handle to it.
    auto queue = DispatchQueue::serial("test.delegate");
    UrlSession::make(UrlSessionConfiguration::defaultConfiguration(), queue)
        ->dataTask(request("/quick"), counter.completion())
        ->resume();
    ASSERT_TRUE(counter.waitFor(3));
    EXPECT_EQ(counter.answered, 2);
}

TEST_F(UrlSessionLifecycleTest, SharedSessionCannotBeInvalidatedAndMainQueueDelegatesRunOnMain) {
    auto shared = UrlSession::shared();
    EXPECT_EQ(shared, UrlSession::shared());
    shared->invalidateAndCancel();
    shared->finishTasksAndInvalidate();

    Outcome outcome = fetch(*shared, request("/fast"));

    ASSERT_FALSE(outcome.error);
    EXPECT_EQ(*outcome.data, "fast");
    EXPECT_TRUE(outcome.ranOnDelegateQueue);

    auto onMain =
        UrlSession::make(UrlSessionConfiguration::defaultConfiguration(), DispatchQueue::main());
    std::optional<bool> onMainThread;
    onMain
        ->dataTask(request("/fast"),
                   [&](auto, auto, auto) { onMainThread = DispatchQueue::isMainThread(); })
        ->resume();

    EXPECT_TRUE(RunLoop::main().runUntil([&] { return onMainThread.has_value(); }, safetyTimeout));
    EXPECT_EQ(onMainThread, true);
}

TEST_F(UrlSessionLifecycleTest, ManyConcurrentRequestsShareAFewConnections) {
    constexpr int count = 200;
    auto segment = TestHttpServer::Response::text(std::string(4096, 'v'));
    segment.contentType = "video/mp2t";
    server.on("/segment.ts", segment);
    std::vector<std::shared_ptr<UrlSessionDataTask>> tasks;
    for (int i = 0; i < count; ++i) {
        tasks.push_back(session->dataTask(request("/segment.ts"), counter.completion()));
    }
    for (auto& task : tasks) {
        task->resume();
    }

    ASSERT_TRUE(counter.waitFor(count));
    EXPECT_EQ(counter.answered, count);
    EXPECT_EQ(server.requestCount("/segment.ts"), static_cast<std::size_t>(count));
    EXPECT_LE(server.connectionCount(),
              static_cast<std::size_t>(session->configuration().httpMaximumConnectionsPerHost));
}

// Answers every connection with fixed bytes and closes it: replies no HTTP server would give,
// or a reply in pieces with pauses between them.
class RawReplyServer {
public:
    explicit RawReplyServer(std::vector<std::string> pieces, double pauseSeconds = 0)
        : pieces_(std::move(pieces)), pause_(pauseSeconds) {
        listener_ = boundLoopbackSocket(port_);
        if (::listen(listener_, 8) != 0) {
            ADD_FAILURE() << "no loopback socket";
            return;
        }
        thread_ = std::thread([this] { serve(); });
    }
    ~RawReplyServer() {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        stopped_.notify_all();
        ::shutdown(listener_, SHUT_RDWR);
        if (thread_.joinable()) {
            thread_.join();
        }
        ::close(listener_);
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/raw"; }

private:
    void serve() {
        while (true) {
            int connection = ::accept(listener_, nullptr, nullptr);
            if (connection < 0) {
                return;
            }
            std::string request;
            char buffer[1024];
            while (request.find("\r\n\r\n") == std::string::npos) {
                auto received = ::recv(connection, buffer, sizeof buffer, 0);
                if (received <= 0) {
                    break;
                }
                request.append(buffer, static_cast<std::size_t>(received));
            }
            for (std::size_t i = 0; i < pieces_.size(); ++i) {
                if (i > 0 && pauseInterrupted()) {
                    break;
                }
                ::send(connection, pieces_[i].data(), pieces_[i].size(), MSG_NOSIGNAL);
            }
            ::close(connection);
        }
    }

    bool pauseInterrupted() {
        std::unique_lock lock(mutex_);
        return stopped_.wait_for(lock, std::chrono::duration<double>(pause_),
                                 [&] { return stopping_; });
    }

    std::vector<std::string> pieces_;
    double pause_;
    std::mutex mutex_;
    std::condition_variable stopped_;
    bool stopping_ = false;
    int listener_ = -1;
    int port_ = 0;
    std::thread thread_;
};

TEST(UrlSessionBrokenServerTest, MalformedAndCutShortRepliesAreDistinctErrors) {
    auto session = UrlSession::make(UrlSessionConfiguration::defaultConfiguration());
    for (auto [reply, expected] :
         {std::pair{"SPEAKING SOMETHING ELSE\r\n\r\n", UrlError::badServerResponse},
          {"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly part",
           UrlError::networkConnectionLost},
          {"HTTP/1.1 2x0 OK\r\nContent-Length: 0\r\n\r\n", UrlError::badServerResponse},
          {"HTTP/1.1 302 Found\r\nLocation: ftp://127.0.0.1/x\r\nContent-Length: 0\r\n\r\n",
           UrlError::unsupportedUrl}}) {
        RawReplyServer server({reply});
        Outcome outcome = fetch(*session, UrlRequest(urlOf(server.url())));
        ASSERT_TRUE(outcome.error) << reply;
        EXPECT_EQ(outcome.error->code(), static_cast<long>(expected))
            << reply << ": " << outcome.error->description();
    }
}

TEST(UrlSessionBrokenServerTest, ASlowButSteadyBodyDoesNotTimeOut) {
    // Six pieces 0.25 s apart: 1.25 s in all, never 0.8 s without a byte.
    RawReplyServer trickle(
        {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n", "a", "b", "c", "d", "e"}, 0.25);
    auto session = UrlSession::make(UrlSessionConfiguration::defaultConfiguration());
    UrlRequest request(urlOf(trickle.url()));
    request.timeoutInterval = 0.8;

    Outcome outcome = fetch(*session, request);

    ASSERT_FALSE(outcome.error) << outcome.error->description();
    EXPECT_EQ(*outcome.data, "abcde");
}

}  // namespace
}  // namespace zarvo
