#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <future>
#include <linux/tcp.h>
#include <memory>
#include <mutex>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/platform/DirectUrlStream.h"
#include "zarvo/platform/ManualScheduler.h"
#include "zarvo/platform/UrlError.h"
#include "zarvo/platform/UrlSession.h"

#include "support/TestHttpServer.h"

namespace zarvo {
namespace {

using namespace std::chrono_literals;

constexpr auto safetyTimeout = 20s;

// Byte `offset` of every test body: the offset of its 8-byte word, little-endian, so that a
// lost, repeated or misplaced piece shows.
char bodyByte(std::size_t offset) {
    return static_cast<char>((offset / 8) >> (8 * (offset % 8)));
}

// Spins until `condition` holds; false after the safety time-out.
template <typename Condition>
bool eventually(Condition condition) {
    auto deadline = std::chrono::steady_clock::now() + safetyTimeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

int localPort(int fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

// A TCP socket bound to a free loopback port; it refuses connections until it listens.
int boundLoopbackSocket() {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return fd;
}

int socketBuffer(int fd, int option) {
    int size = 0;
    socklen_t length = sizeof size;
    ::getsockopt(fd, SOL_SOCKET, option, &size, &length);
    return size;
}

// A loopback HTTP server whose bodies are made while they are sent, one answer per connection:
// /body/N sends N bytes; /cut/N/M announces N and closes after M; /stall/N/M announces N, sends
// M and then nothing until the server stops. Each answer records how far its sender got.
class BodyServer {
public:
    struct Answer {
        std::string path;  // set under the server's mutex
        int fd = -1;
        std::atomic<std::size_t> sent{0};
        std::atomic<bool> finished{false};  // the whole body went out
        std::atomic<bool> ended{false};     // the sender stopped, done or not

        // The client's kernel buffer is full: its reader stopped taking bytes.
        bool clientStoppedReading() const {
            tcp_info info{};
            socklen_t length = sizeof info;
            return ::getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &length) == 0 &&
                   info.tcpi_snd_wnd == 0;
        }
        // The client's end of the connection.
        int clientFd() const {
            sockaddr_in peer{};
            socklen_t length = sizeof peer;
            ::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length);
            for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
                int other = std::stoi(entry.path().filename().string());
                if (other != fd && localPort(other) == ntohs(peer.sin_port)) {
                    return other;
                }
            }
            return -1;
        }
    };

    BodyServer() {
        listener_ = boundLoopbackSocket();
        if (::listen(listener_, 16) != 0) {
            ADD_FAILURE() << "no loopback socket";
            return;
        }
        acceptor_ = std::thread([this] { acceptConnections(); });
    }

    ~BodyServer() {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
            for (const auto& answer : answers_) {
                ::shutdown(answer->fd, SHUT_RDWR);
            }
        }
        stopped_.notify_all();
        ::shutdown(listener_, SHUT_RDWR);
        acceptor_.join();
        for (auto& connection : connections_) {
            connection.join();
        }
        for (const auto& answer : answers_) {
            ::close(answer->fd);
        }
        ::close(listener_);
    }

    std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(localPort(listener_)) + path;
    }

    // The latest answer for `path`, once its request arrived.
    std::shared_ptr<Answer> answer(const std::string& path) {
        std::shared_ptr<Answer> found;
        eventually([&] {
            std::lock_guard lock(mutex_);
            for (const auto& answer : answers_) {
                found = answer->path == path ? answer : found;
            }
            return found != nullptr;
        });
        return found;
    }

private:
    void acceptConnections() {
        while (true) {
            int fd = ::accept(listener_, nullptr, nullptr);
            if (fd < 0) {
                return;
            }
            auto answer = std::make_shared<Answer>();
            answer->fd = fd;
            {
                std::lock_guard lock(mutex_);
                if (stopping_) {
                    ::shutdown(fd, SHUT_RDWR);
                }
                answers_.push_back(answer);
            }
            connections_.emplace_back([this, answer] {
                serve(*answer);
                answer->ended = true;
            });
        }
    }

    void serve(Answer& answer) {
        std::string request;
        char buffer[4096];
        while (request.find("\r\n\r\n") == std::string::npos) {
            auto received = ::recv(answer.fd, buffer, sizeof buffer, 0);
            if (received <= 0) {
                return;
            }
            request.append(buffer, static_cast<std::size_t>(received));
        }
        std::string path = request.substr(4, request.find(' ', 4) - 4);
        std::size_t length = 0;
        std::size_t sent = 0;
        char kind[8] = {};
        std::sscanf(path.c_str(), "/%7[a-z]/%zu/%zu", kind, &length, &sent);
        std::string what = kind;
        {
            std::lock_guard lock(mutex_);
            answer.path = path;
        }
        send(answer, "HTTP/1.1 200 OK\r\nContent-Type: video/mp2t\r\nContent-Length: " +
                         std::to_string(length) + "\r\nConnection: close\r\n\r\n");
        std::size_t end = what == "body" ? length : sent;
        std::string chunk;
        for (std::size_t offset = 0; offset < end; offset += chunk.size()) {
            chunk.resize(std::min<std::size_t>(64 * 1024, end - offset));
            for (std::size_t i = 0; i < chunk.size(); ++i) {
                chunk[i] = bodyByte(offset + i);
            }
            if (!send(answer, chunk)) {
                return;
            }
            answer.sent += chunk.size();
        }
        answer.finished = what == "body";
        if (what == "stall") {
            std::unique_lock lock(mutex_);
            stopped_.wait(lock, [&] { return stopping_; });
        }
        ::shutdown(answer.fd, SHUT_RDWR);
    }

    static bool send(const Answer& answer, const std::string& bytes) {
        for (std::size_t done = 0; done < bytes.size();) {
            auto sent = ::send(answer.fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (sent <= 0) {
                return false;
            }
            done += static_cast<std::size_t>(sent);
        }
        return true;
    }

    int listener_ = -1;
    std::thread acceptor_;
    std::vector<std::thread> connections_;  // touched by the acceptor, then by the destructor
    std::mutex mutex_;
    std::condition_variable stopped_;
    std::vector<std::shared_ptr<Answer>> answers_;
    bool stopping_ = false;
};

// Runs a blocking call on `task`; one that blocks past the safety time-out fails the test
// and is ended by cancelling the task.
template <typename Call>
auto unblocked(UrlSessionStreamTask& task, Call call) {
    auto result = std::async(std::launch::async, call);
    if (result.wait_for(safetyTimeout) != std::future_status::ready) {
        ADD_FAILURE() << "blocked for good";
        task.cancel();
    }
    return result.get();
}

std::variant<HttpUrlResponse, Error> headOf(UrlSessionStreamTask& task) {
    return unblocked(task, [&] { return task.waitForResponse(); });
}

long codeOf(const std::variant<Data, Error>& piece) {
    auto* error = std::get_if<Error>(&piece);
    return error ? error->code() : 0;
}

long codeOfRead(UrlSessionStreamTask& task) {
    return codeOf(unblocked(task, [&] { return task.read(); }));
}

// Reads a task's body, checking every byte.
struct BodyReader {
    // Reads until `count` bytes in all, the end of the body or a failure.
    void readUntil(std::size_t count = SIZE_MAX) {
        unblocked(task, [&] { readPieces(count); });
    }
    void readPieces(std::size_t count) {
        while (offset < count && !ended && !error) {
            auto piece = task.read();
            if (auto* failure = std::get_if<Error>(&piece)) {
                error = *failure;
                return;
            }
            const Data& data = std::get<Data>(piece);
            ended = data.empty();
            for (char byte : data) {
                if (byte != bodyByte(offset)) {
                    ADD_FAILURE() << "wrong byte at " << offset;
                    error = makeUrlError(UrlError::unknown);
                    return;
                }
                ++offset;
            }
        }
    }
    std::string errorText() const { return error ? error->description() : "no error"; }

    UrlSessionStreamTask& task;
    std::size_t offset = 0;
    bool ended = false;
    std::optional<Error> error;
};

class UrlSessionStreamTest : public ::testing::Test {
protected:
    std::shared_ptr<UrlSessionStreamTask> start(const std::string& path,
                                                std::size_t bufferLimit = 1 << 20) {
        auto task = session->streamTask(UrlRequest(*Url::parse(server.url(path))), bufferLimit);
        task->resume();
        return task;
    }

    BodyServer server;
    std::shared_ptr<UrlSession> session =
        UrlSession::make(UrlSessionConfiguration::defaultConfiguration());
};

TEST_F(UrlSessionStreamTest, AReaderThatFallsBehindHoldsTheSenderBackAndGetsEveryByte) {
    constexpr std::size_t length = 48 << 20;
    constexpr std::size_t limit = 256 << 10;
    auto task = start("/body/" + std::to_string(length), limit);
    auto head = headOf(*task);
    ASSERT_TRUE(std::holds_alternative<HttpUrlResponse>(head));
    EXPECT_EQ(std::get<HttpUrlResponse>(head).expectedContentLength,
              static_cast<long long>(length));

    // Nothing read yet: the transfer pauses and the client stops taking bytes off the socket.
    auto answer = server.answer("/body/" + std::to_string(length));
    ASSERT_TRUE(eventually([&] { return answer->finished || answer->clientStoppedReading(); }));
    ASSERT_FALSE(answer->finished) << "the whole body went out to a reader that read nothing";
    EXPECT_LE(task->bytesReceived(), limit);
    std::size_t kernelBuffers = static_cast<std::size_t>(
        socketBuffer(answer->fd, SO_SNDBUF) + socketBuffer(answer->clientFd(), SO_RCVBUF));
    // Beyond the limit: the kernel buffers, curl's receive buffer, one chunk of the sender.
    EXPECT_LE(answer->sent, limit + kernelBuffers + (512 << 10) + (64 << 10));

    BodyReader reader{*task};
    reader.readUntil();
    EXPECT_TRUE(reader.ended) << reader.errorText();
    EXPECT_EQ(reader.offset, length);
    EXPECT_EQ(task->bytesReceived(), length);
    EXPECT_EQ(std::get<Data>(task->read()), "");
}

TEST_F(UrlSessionStreamTest, PausedIsNotIdleButSilenceAndCutsFailAfterTheBytesThatCame) {
    auto clock = ManualScheduler::create();
    ScopedStandardScheduler useClock(clock);
    // 16 MiB, then silence; and silence at once.
    constexpr std::size_t sent = 16 << 20;
    const std::string path = "/stall/" + std::to_string(2 * sent) + "/" + std::to_string(sent);
    auto task = start(path, 64 << 10);
    auto silent = start("/stall/1000/0");
    auto answer = server.answer(path);
    ASSERT_TRUE(eventually([&] { return answer->clientStoppedReading(); }));
    ASSERT_TRUE(std::holds_alternative<HttpUrlResponse>(headOf(*silent)));

    // A minute without a byte fails the silent transfer, in the same look at the clock that
    // spares the one paused for its reader. Once its bytes are read, its silence counts.
    clock->advance(61s);
    EXPECT_EQ(codeOfRead(*silent), static_cast<long>(UrlError::timedOut));
    BodyReader reader{*task};
    reader.readUntil(sent);
    ASSERT_EQ(reader.offset, sent) << reader.errorText();
    clock->advance(60s);
    reader.readUntil();
    EXPECT_EQ(reader.offset, sent);
    ASSERT_TRUE(reader.error);
    EXPECT_TRUE(isUrlError(*reader.error, UrlError::timedOut)) << reader.errorText();

    auto cut = start("/cut/100000/40000");
    EXPECT_TRUE(std::holds_alternative<HttpUrlResponse>(headOf(*cut)));
    BodyReader cutReader{*cut};
    cutReader.readUntil();
    EXPECT_EQ(cutReader.offset, 40000u);
    ASSERT_TRUE(cutReader.error);
    EXPECT_TRUE(isUrlError(*cutReader.error, UrlError::networkConnectionLost))
        << cutReader.errorText();
}

TEST_F(UrlSessionStreamTest, CancelWakesABlockedReaderAndInvalidationCancelsStreams) {
    auto task = start("/stall/1000/0");
    ASSERT_TRUE(std::holds_alternative<HttpUrlResponse>(headOf(*task)));
    auto blocked = std::async(std::launch::async, [&] { return task->read(); });
    task->cancel();
    ASSERT_EQ(blocked.wait_for(safetyTimeout), std::future_status::ready);
    EXPECT_EQ(codeOf(blocked.get()), static_cast<long>(UrlError::cancelled));
    EXPECT_EQ(codeOfRead(*task), static_cast<long>(UrlError::cancelled));
    EXPECT_TRUE(std::holds_alternative<Error>(headOf(*task)));

    auto running = start("/stall/1000/10");
    ASSERT_TRUE(eventually([&] { return running->bytesReceived() == 10; }));
    auto notResumed = session->streamTask(UrlRequest(*Url::parse(server.url("/body/10"))));
    session->invalidateAndCancel();
    notResumed->resume();
    auto later = start("/body/20");
    for (const auto& cancelled : {running, notResumed, later}) {
        EXPECT_EQ(codeOfRead(*cancelled), static_cast<long>(UrlError::cancelled));
    }
}

TEST_F(UrlSessionStreamTest, DroppingATaskMidBodyFreesItsConnection) {
    UrlSessionConfiguration configuration;
    configuration.httpMaximumConnectionsPerHost = 1;
    session = UrlSession::make(configuration);
    auto task = start("/body/" + std::to_string(64 << 20), 64 << 10);
    ASSERT_FALSE(std::get<Data>(task->read()).empty());
    auto answer = server.answer("/body/" + std::to_string(64 << 20));

    task.reset();

    // The only connection slot is free again, and the server saw the client go.
    auto next = start("/body/1000");
    BodyReader reader{*next};
    reader.readUntil();
    EXPECT_TRUE(reader.ended) << reader.errorText();
    EXPECT_EQ(reader.offset, 1000u);
    EXPECT_TRUE(eventually([&] { return answer->ended.load(); }));
    EXPECT_FALSE(answer->finished);
}

TEST(UrlSessionStreamHeadTest, AnyStatusIsAResponseAfterRedirectsAndTransportFailuresAreErrors) {
    test::TestHttpServer server;
    server.on("/first", test::TestHttpServer::Response::redirect("/missing"));
    UrlSessionConfiguration configuration;
    configuration.httpAdditionalHeaders = {{"X-Session", "yes"}};
    auto session = UrlSession::make(configuration);
    UrlRequest request(*Url::parse(server.url("/first")),
                       UrlRequest::CachePolicy::reloadIgnoringLocalCacheData);
    auto task = session->streamTask(request);
    task->resume();

    auto head = headOf(*task);
    ASSERT_TRUE(std::holds_alternative<HttpUrlResponse>(head));
    EXPECT_EQ(std::get<HttpUrlResponse>(head).statusCode, 404);
    EXPECT_EQ(std::get<HttpUrlResponse>(head).url.absoluteString(), server.url("/missing"));
    EXPECT_EQ(std::get<Data>(task->read()), "Not Found");
    EXPECT_EQ(std::get<Data>(task->read()), "");
    ASSERT_EQ(server.requests().size(), 2u);
    EXPECT_EQ(server.requests()[1].header("X-Session"), "yes");
    EXPECT_EQ(server.requests()[1].header("Cache-Control"), "no-cache");

    // A port nobody listens on and a scheme that is not HTTP.
    int closedPort = boundLoopbackSocket();
    std::string refused = "http://127.0.0.1:" + std::to_string(localPort(closedPort)) + "/x";
    for (auto [url, expected] : {std::pair{refused, UrlError::cannotConnectToHost},
                                 {std::string("ftp://127.0.0.1/x"), UrlError::unsupportedUrl}}) {
        auto failing = session->streamTask(UrlRequest(*Url::parse(url)));
        failing->resume();
        auto failed = headOf(*failing);
        ASSERT_TRUE(std::holds_alternative<Error>(failed)) << url;
        EXPECT_TRUE(isUrlError(std::get<Error>(failed), expected)) << url;
        EXPECT_EQ(codeOfRead(*failing), static_cast<long>(expected)) << url;
    }
    ::close(closedPort);
}

// Streams run by the thread that consumes them.
class DirectUrlStreamTest : public ::testing::Test {
protected:
    std::shared_ptr<DirectUrlStream> start(const std::string& url) {
        auto started =
            DirectUrlStream::start(UrlRequest(*Url::parse(url)), configuration, connections);
        if (auto* error = std::get_if<Error>(&started)) {
            ADD_FAILURE() << error->description();
            return nullptr;
        }
        return std::get<std::shared_ptr<DirectUrlStream>>(started);
    }
    // Receives the body in blocks gathered from curl's pieces, checking every byte; stops
    // after `count` bytes.
    std::optional<Error> receive(DirectUrlStream& stream, std::size_t count = SIZE_MAX) {
        return stream.receive(
            [&](const char* data, std::size_t length) {
                for (std::size_t i = 0; i < length; ++i, ++received) {
                    if (data[i] != bodyByte(received)) {
                        ADD_FAILURE() << "wrong byte at " << received;
                        return false;
                    }
                }
                return received < count;
            },
            100000);
    }

    BodyServer server;
    UrlSessionConfiguration configuration;
    std::shared_ptr<DirectUrlConnections> connections = std::make_shared<DirectUrlConnections>();
    std::size_t received = 0;
};

TEST_F(DirectUrlStreamTest, HeadsAsForSessionsAndConnectionsLastUntilClosed) {
    test::TestHttpServer origin;
    origin.on("/first", test::TestHttpServer::Response::redirect("/missing"));
    origin.on("/ok", test::TestHttpServer::Response::text("fine"));
    configuration.httpAdditionalHeaders = {{"X-Session", "yes"}};

    auto stream = start(origin.url("/first"));
    auto head = stream->waitForResponse();
    ASSERT_TRUE(std::holds_alternative<HttpUrlResponse>(head));
    EXPECT_EQ(std::get<HttpUrlResponse>(head).statusCode, 404);
    EXPECT_EQ(std::get<HttpUrlResponse>(head).url.absoluteString(), origin.url("/missing"));
    EXPECT_EQ(origin.requests().back().header("X-Session"), "yes");
    std::string body;
    EXPECT_FALSE(stream->receive([&](const char* data, std::size_t length) {
        body.append(data, length);
        return true;
    }));
    EXPECT_EQ(body, "Not Found");
    stream.reset();
    EXPECT_TRUE(
        std::holds_alternative<HttpUrlResponse>(start(origin.url("/ok"))->waitForResponse()));
    EXPECT_EQ(origin.connectionCount(), 1u) << "the next stream reuses the connection";
    connections->close();
    EXPECT_TRUE(
        std::holds_alternative<HttpUrlResponse>(start(origin.url("/ok"))->waitForResponse()));
    EXPECT_EQ(origin.connectionCount(), 2u);

    int closedPort = boundLoopbackSocket();
    auto refused = start("http://127.0.0.1:" + std::to_string(localPort(closedPort)) + "/x");
    auto failed = refused->waitForResponse();
    ASSERT_TRUE(std::holds_alternative<Error>(failed));
    EXPECT_TRUE(isUrlError(std::get<Error>(failed), UrlError::cannotConnectToHost));
    ::close(closedPort);
    EXPECT_TRUE(std::holds_alternative<Error>(DirectUrlStream::start(
        UrlRequest(*Url::parse("ftp://127.0.0.1/x")), configuration, connections)));
}

TEST_F(DirectUrlStreamTest, BodiesArriveWholeOrStopEarlyAndCutsSilenceAndCancelFail) {
    const std::string path = "/body/" + std::to_string(16 << 20);
    auto whole = start(server.url(path));
    ASSERT_TRUE(std::holds_alternative<HttpUrlResponse>(whole->waitForResponse()));
    EXPECT_FALSE(receive(*whole));
    EXPECT_EQ(received, std::size_t{16} << 20);

    // The consumer stops: no failure, and the origin sees the client go.
    received = 0;
    const std::string big = "/body/" + std::to_string(64 << 20);
    auto stopped = start(server.url(big));
    ASSERT_TRUE(std::holds_alternative<HttpUrlResponse>(stopped->waitForResponse()));
    EXPECT_FALSE(receive(*stopped, 100000));
    stopped.reset();
    EXPECT_TRUE(eventually([&] { return server.answer(big)->ended.load(); }));
    EXPECT_FALSE(server.answer(big)->finished);

    received = 0;
    auto cut = start(server.url("/cut/100000/40000"));
    ASSERT_TRUE(std::holds_alternative<HttpUrlResponse>(cut->waitForResponse()));
    auto error = receive(*cut);
    EXPECT_EQ(received, 40000u);
    ASSERT_TRUE(error);
    EXPECT_TRUE(isUrlError(*error, UrlError::networkConnectionLost)) << error->description();

    auto clock = ManualScheduler::create();
    ScopedStandardScheduler useClock(clock);
    auto silent = start(server.url("/stall/1000/0"));
    ASSERT_TRUE(std::holds_alternative<HttpUrlResponse>(silent->waitForResponse()));
    auto waiting = std::async(std::launch::async, [&] { return receive(*silent); });
    clock->advance(61s);
    ASSERT_EQ(waiting.wait_for(safetyTimeout), std::future_status::ready);
    error = waiting.get();
    ASSERT_TRUE(error);
    EXPECT_TRUE(isUrlError(*error, UrlError::timedOut)) << error->description();

    auto cancelled = start(server.url("/stall/1000/0"));
    ASSERT_TRUE(std::holds_alternative<HttpUrlResponse>(cancelled->waitForResponse()));
    waiting = std::async(std::launch::async, [&] { return receive(*cancelled); });
    cancelled->cancel();
    ASSERT_EQ(waiting.wait_for(safetyTimeout), std::future_status::ready);
    error = waiting.get();
    ASSERT_TRUE(error);
    EXPECT_TRUE(isUrlError(*error, UrlError::cancelled));
}

}  // namespace
}  // namespace zarvo
