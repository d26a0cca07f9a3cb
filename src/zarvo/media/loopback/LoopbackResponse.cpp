#include "zarvo/media/loopback/LoopbackResponse.h"

#include <cstdio>

namespace zarvo {

namespace {

// Frames each write of a body of unknown length as one chunk.
class ChunkedSink final : public LoopbackBodySink {
public:
    explicit ChunkedSink(LoopbackBodySink& connection) : connection_(connection) {}
    bool write(const char* data, std::size_t length) override {
        if (length == 0) {
            return true;
        }
        char size[24];
        const int written = std::snprintf(size, sizeof size, "%zx\r\n", length);
        return connection_.write(size, static_cast<std::size_t>(written)) &&
               connection_.write(data, length) && connection_.write("\r\n", 2);
    }

private:
    LoopbackBodySink& connection_;
};

// Counts what goes through, and stops a producer that writes past the announced length.
class CountingSink final : public LoopbackBodySink {
public:
    CountingSink(LoopbackBodySink& to, std::optional<std::int64_t> limit)
        : to_(to), limit_(limit) {}
    bool write(const char* data, std::size_t length) override {
        if (limit_ && written_ + static_cast<std::int64_t>(length) > *limit_) {
            return false;
        }
        written_ += static_cast<std::int64_t>(length);
        return to_.write(data, length);
    }
    std::int64_t written() const { return written_; }

private:
    LoopbackBodySink& to_;
    const std::optional<std::int64_t> limit_;
    std::int64_t written_ = 0;
};

}  // namespace

void LoopbackResponse::setField(std::string name, std::string value) {
    fields.emplace_back(std::move(name), std::move(value));
}

void LoopbackResponse::setContent(std::string body, std::string type) {
    content = std::move(body);
    contentType = std::move(type);
    producer = nullptr;
    length.reset();
}

void LoopbackResponse::setProducer(std::optional<std::int64_t> bodyLength, std::string type,
                                   Producer produce, Release done) {
    length = bodyLength;
    contentType = std::move(type);
    producer = std::move(produce);
    release = std::move(done);
    content.clear();
}

bool LoopbackResponse::send(LoopbackBodySink& sink, bool headOnly) {
    std::string head = "HTTP/1.1 " + std::to_string(status) + " " + reasonPhrase(status) + "\r\n";
    if (!contentType.empty()) {
        head += "Content-Type: " + contentType + "\r\n";
    }
    const bool chunked = producer && !length;
    if (chunked) {
        head += "Transfer-Encoding: chunked\r\n";
    } else {
        const std::int64_t size = producer ? *length : static_cast<std::int64_t>(content.size());
        head += "Content-Length: " + std::to_string(size) + "\r\n";
    }
    for (const auto& [name, value] : fields) {
        head += name + ": " + value + "\r\n";
    }
    head += "Connection: close\r\n\r\n";
    bool complete = sink.write(head.data(), head.size());
    if (headOnly || !complete) {
        complete = complete && headOnly && !producer;
    } else if (!producer) {
        complete = content.empty() || sink.write(content.data(), content.size());
    } else if (chunked) {
        ChunkedSink chunks(sink);
        complete = producer(chunks) && sink.write("0\r\n\r\n", 5);
    } else {
        CountingSink counted(sink, length);
        complete = producer(counted) && counted.written() == *length;
    }
    if (release) {
        std::exchange(release, nullptr)(complete);
    }
    return complete;
}

const char* LoopbackResponse::reasonPhrase(int status) {
    switch (status) {
        case 200:
            return "OK";
        case 400:
            return "Bad Request";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        case 408:
            return "Request Timeout";
        case 414:
            return "URI Too Long";
        case 416:
            return "Range Not Satisfiable";
        case 431:
            return "Request Header Fields Too Large";
        case 500:
            return "Internal Server Error";
        case 502:
            return "Bad Gateway";
        case 503:
            return "Service Unavailable";
        case 505:
            return "HTTP Version Not Supported";
        default:
            return "Status";
    }
}

}  // namespace zarvo
