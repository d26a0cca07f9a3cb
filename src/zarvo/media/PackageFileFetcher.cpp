#include "zarvo/media/PackageFileFetcher.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "zarvo/media/MediaError.h"
#include "zarvo/platform/ResponseLimits.h"
#include "zarvo/platform/UrlError.h"
#include "zarvo/platform/UrlRequest.h"
#include "zarvo/platform/UrlSessionConfiguration.h"

namespace zarvo {
namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

Error writeError(const std::filesystem::path& path, int code) {
    return makeMediaError(MediaError::writeFailed,
                          "Could not write " + path.string() + ": " + std::strerror(code) + ".");
}

}  // namespace

PackageFileFetcher::PackageFileFetcher(Settings settings)
    : settings_(std::move(settings)), connections_(std::make_shared<DirectUrlConnections>()) {}

std::filesystem::path PackageFileFetcher::partialPath(const std::filesystem::path& path) {
    return path.string() + ".part";
}

void PackageFileFetcher::stop() {
    std::set<std::shared_ptr<DirectUrlStream>> streams;
    {
        std::lock_guard lock(mutex_);
        stop_ = true;
        streams = streams_;
    }
    stopped_.notify_all();
    for (const auto& stream : streams) {
        stream->cancel();
    }
    connections_->close();
}

bool PackageFileFetcher::isStopped() const {
    std::lock_guard lock(mutex_);
    return stop_;
}

bool PackageFileFetcher::wait(double seconds) {
    std::unique_lock lock(mutex_);
    return !stopped_.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return stop_; });
}

std::optional<Error> PackageFileFetcher::attempt(
    const Url& url, const std::optional<HlsPlaylistRewriter::ByteRange>& range,
    std::size_t maximumLength, const std::function<bool(const char*, std::size_t)>& consume,
    bool& retryable) {
    retryable = false;
    UrlRequest request(url);
    for (const auto& [name, value] : settings_.headers) {
        request.setValue(value, name);
    }
    if (range) {
        request.setValue("bytes=" + std::to_string(range->offset) + "-" +
                             std::to_string(range->offset + range->length - 1),
                         "Range");
    }
    auto started = DirectUrlStream::start(request, UrlSessionConfiguration::defaultConfiguration(),
                                          connections_);
    if (auto* error = std::get_if<Error>(&started)) {
        return makeTransportError(url, *error);
    }
    auto stream = std::get<std::shared_ptr<DirectUrlStream>>(std::move(started));
    {
        std::lock_guard lock(mutex_);
        if (stop_) {
            return makeUrlError(UrlError::cancelled, url.absoluteString());
        }
        streams_.insert(stream);
    }
    struct Untrack {
        PackageFileFetcher& fetcher;
        const std::shared_ptr<DirectUrlStream>& stream;
        ~Untrack() {
            std::lock_guard lock(fetcher.mutex_);
            fetcher.streams_.erase(stream);
        }
    } untrack{*this, stream};

    auto head = stream->waitForResponse();
    if (auto* error = std::get_if<Error>(&head)) {
        retryable = !isUrlError(*error, UrlError::cancelled);
        return makeTransportError(url, *error);
    }
    const int status = std::get<HttpUrlResponse>(head).statusCode;
    if (status < 200 || status >= 300) {
        retryable = status >= 500;
        return makeStatusError(url, status);
    }
    // An origin that ignores the range sends the whole resource: the bytes around it are
    // skipped.
    std::int64_t skip = range && status == 200 ? range->offset : 0;
    std::int64_t left = range ? range->length : -1;
    std::size_t taken = 0;
    bool tooLong = false;
    auto error = stream->receive(
        [&](const char* data, std::size_t length) {
            const auto skipped = std::min<std::int64_t>(skip, static_cast<std::int64_t>(length));
            skip -= skipped;
            data += skipped;
            length -= static_cast<std::size_t>(skipped);
            if (left >= 0) {
                length = static_cast<std::size_t>(std::min<std::int64_t>(left, length));
                left -= static_cast<std::int64_t>(length);
            }
            taken += length;
            tooLong = taken > maximumLength;
            return !tooLong && (length == 0 || consume(data, length)) && left != 0;
        },
        256 * 1024);
    if (tooLong) {
        return makeTransportError(
            url, makeUrlError(UrlError::dataLengthExceedsMaximum, url.absoluteString()));
    }
    if (error) {
        retryable = !isUrlError(*error, UrlError::cancelled);
        return makeTransportError(url, *error);
    }
    if (left > 0) {
        retryable = true;
        return makeTransportError(url, makeUrlError(UrlError::networkConnectionLost,
                                                    url.absoluteString(), "the body was short"));
    }
    return std::nullopt;
}

template <typename Try>
std::optional<Error> PackageFileFetcher::withRetries(const Url& url, const Try& once) {
    for (std::size_t tried = 0;; ++tried) {
        if (isStopped()) {
            return makeUrlError(UrlError::cancelled, url.absoluteString());
        }
        bool retryable = false;
        auto error = once(retryable);
        if (!error || !retryable || tried >= settings_.retryDelays.size()) {
            return error;
        }
        if (!wait(settings_.retryDelays[tried])) {
            return makeUrlError(UrlError::cancelled, url.absoluteString());
        }
    }
}

std::variant<std::string, Error> PackageFileFetcher::fetchText(const Url& url) {
    std::string text;
    auto error = withRetries(url, [&](bool& retryable) {
        text.clear();
        return attempt(
            url, std::nullopt, ResponseLimits::playlist,
            [&](const char* data, std::size_t length) {
                text.append(data, length);
                return true;
            },
            retryable);
    });
    if (error) {
        return *error;
    }
    return text;
}

std::variant<std::int64_t, Error> PackageFileFetcher::fetchFile(
    const Url& url, const std::optional<HlsPlaylistRewriter::ByteRange>& range,
    const std::filesystem::path& path, std::size_t maximumLength) {
    const auto partial = partialPath(path);
    std::int64_t written = 0;
    std::optional<Error> writeFailure;
    auto error = withRetries(url, [&](bool& retryable) -> std::optional<Error> {
        File file(std::fopen(partial.c_str(), "wb"));
        if (!file) {
            writeFailure = writeError(path, errno);
            return writeFailure;
        }
        written = 0;
        auto failure = attempt(
            url, range, maximumLength,
            [&](const char* data, std::size_t length) {
                if (std::fwrite(data, 1, length, file.get()) != length) {
                    writeFailure = writeError(path, errno);
                    return false;
                }
                written += static_cast<std::int64_t>(length);
                return true;
            },
            retryable);
        if (!failure && !writeFailure && std::fflush(file.get()) != 0) {
            writeFailure = writeError(path, errno);
        }
        if (writeFailure) {
            retryable = false;
            return writeFailure;
        }
        return failure;
    });
    std::error_code ignored;
    if (error) {
        std::filesystem::remove(partial, ignored);
        return *error;
    }
    std::error_code renamed;
    std::filesystem::rename(partial, path, renamed);
    if (renamed) {
        std::filesystem::remove(partial, ignored);
        return writeError(path, renamed.value());
    }
    return written;
}

}  // namespace zarvo
