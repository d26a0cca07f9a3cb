#include "zarvo/platform/CurlTransfer.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "zarvo/platform/AsciiText.h"

namespace zarvo {
namespace {

constexpr double defaultTimeoutSeconds = 60.0;
constexpr long maximumRedirects = 16;
// Streamed bodies are read from the socket in larger gulps: fewer receive calls, rounds of the
// network thread and reader wake-ups per byte (curl still hands the bytes over in pieces of
// 16 KiB). A paused transfer holds up to this much in curl besides the stream's own limit.
constexpr long streamReceiveBufferSize = 512 * 1024;

bool isValidHeaderName(const std::string& name) {
    if (name.empty()) {
        return false;
    }
    return std::none_of(name.begin(), name.end(),
                        [](unsigned char c) { return c <= ' ' || c == ':' || c == 0x7f; });
}

// A header value on one line: CR and LF would split it into lines of their own.
std::string singleLine(std::string value) {
    std::replace_if(
        value.begin(), value.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
    return value;
}

// The time-out without progress: the request's own unless it kept the default, then the
// session's; an unusable value falls back to the default.
double idleTimeoutSeconds(const UrlRequest& request, const UrlSessionConfiguration& configuration) {
    auto usable = [](double seconds) {
        return std::isfinite(seconds) && seconds > 0;
    };
    double seconds = request.timeoutInterval;
    if (!usable(seconds) || seconds == defaultTimeoutSeconds) {
        seconds = configuration.timeoutIntervalForRequest;
    }
    return usable(seconds) ? seconds : defaultTimeoutSeconds;
}

long millisecondsFor(double seconds) {
    constexpr double cap = 365.0 * 24 * 3600 * 1000;
    return static_cast<long>(std::clamp(seconds * 1000.0, 1.0, cap));
}

UrlError errorFor(CURLcode code) {
    switch (code) {
        case CURLE_UNSUPPORTED_PROTOCOL:
            return UrlError::unsupportedUrl;
        case CURLE_URL_MALFORMAT:
            return UrlError::badUrl;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            return UrlError::cannotFindHost;
        case CURLE_COULDNT_CONNECT:
            return UrlError::cannotConnectToHost;
        case CURLE_OPERATION_TIMEDOUT:
            return UrlError::timedOut;
        // The peer went away: before any byte of a response, or in the middle of one.
        case CURLE_GOT_NOTHING:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_PARTIAL_FILE:
            return UrlError::networkConnectionLost;
        // Bytes arrived that are not a well-formed HTTP response.
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM:
        case CURLE_HTTP3:
        case CURLE_RANGE_ERROR:
            return UrlError::badServerResponse;
        case CURLE_BAD_CONTENT_ENCODING:
            return UrlError::cannotDecodeContentData;
        case CURLE_FILESIZE_EXCEEDED:
            return UrlError::dataLengthExceedsMaximum;
        case CURLE_TOO_MANY_REDIRECTS:
            return UrlError::httpTooManyRedirects;
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
        case CURLE_SSL_ISSUER_ERROR:
            return UrlError::serverCertificateUntrusted;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_ENGINE_NOTFOUND:
        case CURLE_SSL_ENGINE_SETFAILED:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_SSL_SHUTDOWN_FAILED:
        case CURLE_SSL_CRL_BADFILE:
        case CURLE_SSL_INVALIDCERTSTATUS:
        case CURLE_SSL_CLIENTCERT:
            return UrlError::secureConnectionFailed;
        case CURLE_ABORTED_BY_CALLBACK:
            return UrlError::cancelled;
        default:
            return UrlError::unknown;
    }
}

}  // namespace

std::variant<std::shared_ptr<CurlTransfer>, Error> CurlTransfer::make(
    const UrlRequest& request, const UrlSessionConfiguration& configuration,
    const std::string& connectionGroup, Finish finish) {
    return makeWith(request, configuration, connectionGroup, std::move(finish), nullptr, nullptr);
}

std::variant<std::shared_ptr<CurlTransfer>, Error> CurlTransfer::makeStreamed(
    const UrlRequest& request, const UrlSessionConfiguration& configuration,
    const std::string& connectionGroup, std::shared_ptr<UrlStreamBuffer> stream) {
    return makeWith(request, configuration, connectionGroup, nullptr, std::move(stream), nullptr);
}

std::variant<std::shared_ptr<CurlTransfer>, Error> CurlTransfer::makeDirect(
    const UrlRequest& request, const UrlSessionConfiguration& configuration,
    BodyReceiver& receiver) {
    // Its owner runs it alone: no connection group or per-host limit applies.
    return makeWith(request, configuration, "direct", nullptr, nullptr, &receiver);
}

std::variant<std::shared_ptr<CurlTransfer>, Error> CurlTransfer::makeWith(
    const UrlRequest& request, const UrlSessionConfiguration& configuration,
    const std::string& connectionGroup, Finish finish, std::shared_ptr<UrlStreamBuffer> stream,
    BodyReceiver* receiver) {
    const std::string& text = request.url.absoluteString();
    if (!request.url.isHttp()) {
        return makeUrlError(UrlError::unsupportedUrl, text);
    }
    auto host = request.url.host();
    if (!host || host->empty()) {
        return makeUrlError(UrlError::badUrl, text, "The URL has no host.");
    }
    auto transfer = std::make_shared<CurlTransfer>(Token{}, request.url, Scheduler::standard());
    transfer->finish_ = std::move(finish);
    transfer->stream_ = std::move(stream);
    transfer->receiver_ = receiver;
    const std::string scheme = request.url.scheme();
    int port = request.url.port().value_or(scheme == "https" ? 443 : 80);
    transfer->hostKey_ =
        connectionGroup + " " + scheme + "://" + *host + ":" + std::to_string(port);
    transfer->maxConnectionsPerHost_ = std::max(1, configuration.httpMaximumConnectionsPerHost);
    if (!transfer->configure(request, configuration)) {
        return makeUrlError(UrlError::unknown, text, "The transfer could not be set up.");
    }
    return transfer;
}

CurlTransfer::~CurlTransfer() = default;

bool CurlTransfer::configure(const UrlRequest& request,
                             const UrlSessionConfiguration& configuration) {
    easy_.reset(curl_easy_init());
    CURL* h = easy_.get();
    if (h == nullptr) {
        return false;
    }
    bool ok = true;
    auto set = [&](CURLoption option, auto value) {
        ok = ok && curl_easy_setopt(h, option, value) == CURLE_OK;
    };

    set(CURLOPT_URL, url_.absoluteString().c_str());
    set(CURLOPT_PRIVATE, static_cast<void*>(this));
    set(CURLOPT_ERRORBUFFER, errorBuffer_.data());
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 1L);
    set(CURLOPT_MAXREDIRS, maximumRedirects);
    set(CURLOPT_ACCEPT_ENCODING, "");
    // Loopback peers (the SDK's own servers) are never reached through a proxy.
    set(CURLOPT_NOPROXY, "127.0.0.1,localhost,::1");

    set(CURLOPT_HEADERDATA, static_cast<void*>(this));
    set(CURLOPT_WRITEDATA, static_cast<void*>(this));
    if (isStreamedOrDirect()) {
        set(CURLOPT_HEADERFUNCTION, &CurlTransfer::onStreamHeader);
        set(CURLOPT_WRITEFUNCTION,
            stream_ ? &CurlTransfer::onStreamBody : &CurlTransfer::onDirectBody);
        set(CURLOPT_BUFFERSIZE, streamReceiveBufferSize);
        // A proxy's answer to CONNECT is not the head of the response.
        set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    } else {
        set(CURLOPT_HEADERFUNCTION, &CurlTransfer::onHeader);
        set(CURLOPT_WRITEFUNCTION, &CurlTransfer::onBody);
    }

    if (request.maximumBodyLength) {
        // curl refuses an announced length past it; what arrives is counted in onBody.
        maximumBodyLength_ = request.maximumBodyLength;
        set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(*maximumBodyLength_));
    }

    idleTimeoutSeconds_ = idleTimeoutSeconds(request, configuration);
    // curl's own connect time-out runs on real time, as a backstop to the scheduler's.
    set(CURLOPT_CONNECTTIMEOUT_MS, millisecondsFor(idleTimeoutSeconds_));
    double resourceSeconds = configuration.timeoutIntervalForResource;
    if (std::isfinite(resourceSeconds) && resourceSeconds > 0) {
        set(CURLOPT_TIMEOUT_MS, millisecondsFor(resourceSeconds));
    }

    const std::string& method = request.httpMethod;
    if (ascii::equalsIgnoringCase(method, "HEAD")) {
        set(CURLOPT_NOBODY, 1L);
    } else if (ascii::equalsIgnoringCase(method, "POST")) {
        requestBody_ = request.httpBody.value_or(Data());
        set(CURLOPT_POST, 1L);
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(requestBody_.size()));
        set(CURLOPT_POSTFIELDS, requestBody_.data());
    } else if (!method.empty() && !ascii::equalsIgnoringCase(method, "GET")) {
        set(CURLOPT_CUSTOMREQUEST, method.c_str());
        if (request.httpBody) {
            requestBody_ = *request.httpBody;
            set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(requestBody_.size()));
            set(CURLOPT_POSTFIELDS, requestBody_.data());
        }
    }

    if (!requestBody_.empty()) {
        // Headers and body chunks mark received bytes as progress; sent bytes need curl's
        // progress callback, which costs time on every transfer, so only uploads take it.
        set(CURLOPT_XFERINFOFUNCTION, &CurlTransfer::onProgress);
        set(CURLOPT_XFERINFODATA, static_cast<void*>(this));
        set(CURLOPT_NOPROGRESS, 0L);
    }

    // Header lines: the request's own, then the session's for names the request left unset.
    std::vector<std::pair<std::string, std::string>> headers;
    auto requestSets = [&](const std::string& name) {
        return request.value(name).has_value();
    };
    for (const auto& header : request.allHttpHeaderFields()) {
        headers.push_back(header);
    }
    for (const auto& header : configuration.httpAdditionalHeaders) {
        if (!requestSets(header.first)) {
            headers.push_back(header);
        }
    }
    auto policy = request.cachePolicy;
    if ((policy == UrlRequest::CachePolicy::reloadIgnoringLocalCacheData ||
         policy == UrlRequest::CachePolicy::reloadIgnoringLocalAndRemoteCacheData) &&
        !requestSets("Cache-Control")) {
        headers.emplace_back("Cache-Control", "no-cache");
    }
    if (!requestSets("Expect")) {
        // Bodies go at once, without waiting for a "100 Continue".
        headers.emplace_back("Expect", "");
    }
    curl_slist* list = nullptr;
    for (const auto& [name, value] : headers) {
        if (!isValidHeaderName(name)) {
            continue;
        }
        std::string line = singleLine(value);
        // "Name;" is how curl sends a header with an empty value ("Name:" would remove it).
        line = line.empty() ? name + ";" : name + ": " + line;
        curl_slist* grown = curl_slist_append(list, line.c_str());
        if (grown == nullptr) {
            curl_slist_free_all(list);
            return false;
        }
        list = grown;
    }
    headerList_.reset(list);
    if (list != nullptr) {
        set(CURLOPT_HTTPHEADER, list);
    }
    return ok;
}

size_t CurlTransfer::onHeader(char* data, size_t size, size_t count, void* self) {
    auto* transfer = static_cast<CurlTransfer*>(self);
    transfer->markProgress();
    if (std::string_view(data, size * count).starts_with("HTTP/")) {
        transfer->sawStatusLine_ = true;
    }
    return size * count;
}

size_t CurlTransfer::onBody(char* data, size_t size, size_t count, void* self) {
    auto* transfer = static_cast<CurlTransfer*>(self);
    size_t length = size * count;
    transfer->markProgress();
    if (transfer->maximumBodyLength_ &&
        length > *transfer->maximumBodyLength_ - transfer->body_.size()) {
        transfer->bodyTooLong_ = true;
        return 0;  // curl stops the transfer
    }
    transfer->body_.append(data, length);
    return length;
}

size_t CurlTransfer::onStreamHeader(char* data, size_t size, size_t count, void* self) {
    size_t length = onHeader(data, size, count, self);
    auto* transfer = static_cast<CurlTransfer*>(self);
    std::string_view line(data, size * count);
    if (!transfer->headPublished_ && (line == "\r\n" || line == "\n") && transfer->isFinalHead()) {
        transfer->publishHead();
    }
    return length;
}

size_t CurlTransfer::onStreamBody(char* data, size_t size, size_t count, void* self) {
    auto* transfer = static_cast<CurlTransfer*>(self);
    size_t length = size * count;
    transfer->markProgress();
    if (!transfer->headPublished_) {
        transfer->publishHead();
    }
    if (!transfer->stream_->offer(data, length)) {
        transfer->receivePaused_ = true;
        return CURL_WRITEFUNC_PAUSE;
    }
    return length;
}

size_t CurlTransfer::onDirectBody(char* data, size_t size, size_t count, void* self) {
    auto* transfer = static_cast<CurlTransfer*>(self);
    size_t length = size * count;
    transfer->markProgress();
    if (!transfer->headPublished_) {
        transfer->publishHead();
    }
    size_t taken = transfer->receiver_->receive(data, length);
    if (taken == CURL_WRITEFUNC_PAUSE) {
        transfer->receivePaused_ = true;
    }
    return taken;
}

int CurlTransfer::onProgress(void* self, curl_off_t, curl_off_t downloaded, curl_off_t,
                             curl_off_t uploaded) {
    auto* transfer = static_cast<CurlTransfer*>(self);
    if (downloaded != transfer->lastDownloaded_ || uploaded != transfer->lastUploaded_) {
        transfer->lastDownloaded_ = downloaded;
        transfer->lastUploaded_ = uploaded;
        transfer->markProgress();
    }
    return 0;
}

bool CurlTransfer::isFinalHead() const {
    long status = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status < 200) {
        return false;
    }
    // curl follows every 3xx that names a non-empty Location.
    curl_header* location = nullptr;
    return status >= 400 || status < 300 ||
           curl_easy_header(easy_.get(), "Location", 0, CURLH_HEADER, -1, &location) != CURLHE_OK ||
           *location->value == '\0';
}

void CurlTransfer::publishHead() {
    if (auto response = takeResponse()) {
        headPublished_ = true;
        if (stream_) {
            stream_->setResponse(std::move(*response));
        } else {
            head_ = std::move(response);
        }
    }
}

void CurlTransfer::resumeReceiving() {
    if (!receivePaused_) {
        return;
    }
    receivePaused_ = false;
    markProgress();
    curl_easy_pause(easy_.get(), CURLPAUSE_CONT);
}

std::optional<HttpUrlResponse> CurlTransfer::takeResponse() {
    CURL* h = easy_.get();
    long status = 0;
    curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &status);
    if (status <= 0) {
        return std::nullopt;
    }
    const char* effective = nullptr;
    curl_easy_getinfo(h, CURLINFO_EFFECTIVE_URL, &effective);
    // Without a redirect the final URL is the request's own, already parsed.
    std::optional<Url> finalUrl;
    if (effective != nullptr && url_.absoluteString() != effective) {
        finalUrl = Url::parse(effective);
    }
    // The headers of the last response: not those of redirects or of interim 1xx answers.
    std::vector<std::pair<std::string, std::string>> headers;
    for (curl_header* header = nullptr;
         (header = curl_easy_nextheader(h, CURLH_HEADER, -1, header)) != nullptr;) {
        headers.emplace_back(ascii::trimmed(header->name), header->value);
    }
    HttpUrlResponse response{finalUrl.value_or(url_), static_cast<int>(status), std::move(headers),
                             -1};
    // A Content-Length counts encoded bytes; the body is handed over decoded.
    auto encoding = response.value("Content-Encoding");
    bool encoded =
        encoding && !encoding->empty() && !ascii::equalsIgnoringCase(*encoding, "identity");
    auto length = response.value("Content-Length");
    if (length && !encoded) {
        long long parsed = -1;
        auto [end, error] =
            std::from_chars(length->data(), length->data() + length->size(), parsed);
        if (error == std::errc() && end == length->data() + length->size() && parsed >= 0) {
            response.expectedContentLength = parsed;
        }
    }
    return response;
}

CurlTransfer::Outcome CurlTransfer::responseOutcome() {
    auto response = takeResponse();
    if (!response) {
        return {std::nullopt, std::nullopt,
                makeUrlError(UrlError::badServerResponse, url_.absoluteString(),
                             "No HTTP status arrived.")};
    }
    return {std::move(body_), std::move(response), std::nullopt};
}

void CurlTransfer::endStream() {
    if (!headPublished_) {
        publishHead();
    }
    if (!headPublished_) {
        finishStream(makeUrlError(UrlError::badServerResponse, url_.absoluteString(),
                                  "No HTTP status arrived."));
        return;
    }
    finishStream(std::nullopt);
}

void CurlTransfer::finishStream(std::optional<Error> error) {
    if (stream_) {
        stream_->finish(std::move(error));
        return;
    }
    ended_ = true;
    failure_ = std::move(error);
}

void CurlTransfer::complete(CURLcode code) {
    if (code == CURLE_OK) {
        if (isStreamedOrDirect()) {
            endStream();
        } else {
            deliver(responseOutcome());
        }
        return;
    }
    std::string detail = errorBuffer_.c_str();
    if (detail.empty()) {
        detail = curl_easy_strerror(code);
    }
    UrlError error = bodyTooLong_ ? UrlError::dataLengthExceedsMaximum : errorFor(code);
    if (code == CURLE_UNSUPPORTED_PROTOCOL && !sawStatusLine_) {
        // Every request starts on http or https, so without a status line this is a reply
        // that is not HTTP at all, not a redirect to another scheme.
        error = UrlError::badServerResponse;
    }
    fail(error, detail);
}

void CurlTransfer::fail(UrlError code, const std::string& detail) {
    auto error = makeUrlError(code, url_.absoluteString(), detail);
    if (isStreamedOrDirect()) {
        finishStream(std::move(error));
        return;
    }
    deliver({std::nullopt, std::nullopt, std::move(error)});
}

void CurlTransfer::deliver(Outcome outcome) {
    Finish finish = std::move(finish_);
    finish_ = nullptr;
    if (finish) {
        finish(std::move(outcome));
    }
}

}  // namespace zarvo
