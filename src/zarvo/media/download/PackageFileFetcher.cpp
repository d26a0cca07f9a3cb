#include "zarvo/media/download/PackageFileFetcher.h"

#include <algorithm>
#include <chrono>
#include <random>

#include "zarvo/media/model/MediaError.h"
#include "zarvo/platform/DurableFile.h"
#include "zarvo/platform/ResponseLimits.h"
#include "zarvo/platform/UrlError.h"
#include "zarvo/platform/UrlRequest.h"
#include "zarvo/platform/UrlSessionConfiguration.h"

namespace zarvo {
namespace {

Error writeError(const std::filesystem::path& path, const std::error_code& code) {
    return makeMediaError(MediaError::writeFailed,
                          "Could not write " + path.string() + ": " + code.message() + ".");
}

// Whether another try of an answer with `status` may get the resource: the server's failures,
// and answers that ask to come back later.
bool worthTryingAgain(int status) {
    return status >= 500 || status == 408 || status == 429;
}

}  // namespace

PackageFileFetcher::PackageFileFetcher(Settings settings)
    : settings_(std::move(settings)), connections_(std::make_shared<DirectUrlConnections>()) {}

void PackageFileFetcher::stop() {
    {
        std::lock_guard lock(mutex_);
        stop_ = true;
    }
    stopped_.notify_all();
    interrupt();
    connections_->close();
}

void PackageFileFetcher::interrupt() {
    std::set<std::shared_ptr<DirectUrlStream>> streams;
    {
        std::lock_guard lock(mutex_);
        streams = streams_;
    }
    for (const auto& stream : streams) {
        stream->cancel();
    }
}

bool PackageFileFetcher::isStopped() const {
    std::lock_guard lock(mutex_);
    return stop_;
}

bool PackageFileFetcher::wait(double seconds) {
    std::unique_lock lock(mutex_);
    return !stopped_.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return stop_; });
}

bool PackageFileFetcher::waitUntilMayTry(const Url& url) {
    while (settings_.mayTry && !settings_.mayTry(url)) {
        if (!wait(0.25)) {
            return false;
        }
    }
    return !isStopped();
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
        request.setValue(range->header(), "Range");
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
        retryable = worthTryingAgain(status);
        return makeStatusError(url, status);
    }
    std::int64_t skip = range ? range->skippedIn(status) : 0;
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
    thread_local std::mt19937 random(std::random_device{}());
    double delay = settings_.firstDelay;
    double outage = 0;  // seconds of failures in a row while trying was possible
    for (;;) {
        if (!waitUntilMayTry(url)) {
            return makeUrlError(UrlError::cancelled, url.absoluteString());
        }
        bool retryable = false;
        auto error = once(retryable);
        if (!error || !retryable || outage >= settings_.outageLimit) {
            return error;
        }
        // Jitter keeps the files of a run, and runs of other hosts, from coming back at once.
        const double wait = std::min(delay, settings_.outageLimit - outage) *
                            std::uniform_real_distribution<double>(0.8, 1.2)(random);
        if (!this->wait(wait)) {
            return makeUrlError(UrlError::cancelled, url.absoluteString());
        }
        outage += wait;
        delay = std::min(delay * 2, settings_.longestDelay);
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
    const std::filesystem::path& path, std::size_t maximumLength,
    const BeforePlacing& beforePlacing) {
    auto created = DurableFile::create(path, std::filesystem::perms(0644));
    if (auto* error = std::get_if<std::error_code>(&created)) {
        return writeError(path, *error);
    }
    auto& file = std::get<DurableFile>(created);
    std::optional<Error> writeFailure;
    auto error = withRetries(url, [&](bool& retryable) -> std::optional<Error> {
        if (auto restarted = file.restart()) {
            writeFailure = writeError(path, restarted);
        }
        auto failure = writeFailure ? std::nullopt
                                    : attempt(
                                          url, range, maximumLength,
                                          [&](const char* data, std::size_t length) {
                                              if (auto written = file.write(data, length)) {
                                                  writeFailure = writeError(path, written);
                                                  return false;
                                              }
                                              return true;
                                          },
                                          retryable);
        if (writeFailure) {
            // A disk that is full or failing: trying again does not help.
            retryable = false;
            return writeFailure;
        }
        return failure;
    });
    if (error) {
        return *error;
    }
    if (auto synced = file.sync()) {
        return writeError(path, synced);
    }
    const auto length = static_cast<std::int64_t>(file.size());
    if (beforePlacing) {
        if (auto refused = beforePlacing(length)) {
            return *refused;
        }
    }
    if (auto committed = file.commit()) {
        return writeError(path, committed);
    }
    return length;
}

}  // namespace zarvo
