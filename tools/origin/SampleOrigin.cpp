#include "origin/SampleOrigin.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <condition_variable>
#include <csignal>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include <httplib.h>

#include "zarvo/platform/DataFile.h"
#include "zarvo/platform/Scheduler.h"
#include "zarvo/platform/TcpConnections.h"

#include "origin/FullHdContent.h"
#include "origin/LicenseServer.h"
#include "origin/SegmentList.h"

namespace zarvo::origin {

namespace fs = std::filesystem;

namespace {

constexpr unsigned char transparentGif[] = {
    0x47, 0x49, 0x46, 0x38, 0x39, 0x61, 0x01, 0x00, 0x01, 0x00, 0x80, 0x00, 0x00, 0x00, 0x00,
    0x00, 0xff, 0xff, 0xff, 0x21, 0xf9, 0x04, 0x01, 0x00, 0x00, 0x00, 0x00, 0x2c, 0x00, 0x00,
    0x00, 0x00, 0x01, 0x00, 0x01, 0x00, 0x00, 0x02, 0x02, 0x44, 0x01, 0x00, 0x3b};

const char* contentTypeFor(const std::string& path) {
    const std::string extension = fs::path(path).extension().string();
    if (extension == ".m3u8") {
        return "application/vnd.apple.mpegurl";
    }
    if (extension == ".ts") {
        return "video/mp2t";
    }
    if (extension == ".vtt") {
        return "text/vtt";
    }
    return "application/octet-stream";
}

std::string rawQuery(const httplib::Request& request) {
    const std::size_t mark = request.target.find('?');
    return mark == std::string::npos ? std::string() : request.target.substr(mark + 1);
}

std::optional<long long> integerParameter(const httplib::Request& request, const char* name) {
    if (!request.has_param(name)) {
        return std::nullopt;
    }
    const std::string text = request.get_param_value(name);
    long long value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || ec != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

}  // namespace

struct SampleOrigin::Impl {
    OriginOptions options;
    httplib::Server server;
    std::thread thread;
    std::atomic<bool> listenerDone{false};
    int port = 0;
    std::optional<SampleContent> content;
    std::optional<FullHdContent> fullHd;
    std::optional<LivePlaylist> live;
    std::optional<LicenseServer> licenses;
    std::map<std::string, SegmentList> renditions;  // "v0", "a_pol", ...
    BeaconLog beacons;
    FaultInjector faults;
    // The fault chosen for the request each server thread is handling (httplib runs the
    // pre-routing handler and the route on the same thread).
    std::mutex activeFaultsMutex;
    std::map<std::thread::id, Fault> activeFaults;
    mutable std::mutex requestsMutex;
    std::vector<std::string> requests;

    std::mutex stopMutex;
    std::condition_variable stopSignal;
    bool stopping = false;

    explicit Impl(OriginOptions opts) : options(std::move(opts)) {}

    Date now() const { return options.clock ? options.clock() : Scheduler::standard()->now(); }

    // Waits for `seconds` unless the origin stops first; false when it is stopping.
    bool pause(double seconds) {
        std::unique_lock lock(stopMutex);
        return !stopSignal.wait_for(lock, std::chrono::duration<double>(seconds),
                                    [this] { return stopping; });
    }

    std::optional<Fault> chooseFault(const std::string& path) {
        auto fault = faults.take(path);
        std::lock_guard lock(activeFaultsMutex);
        if (fault) {
            activeFaults[std::this_thread::get_id()] = *fault;
        } else {
            activeFaults.erase(std::this_thread::get_id());
        }
        return fault;
    }

    std::optional<Fault> activeFault() {
        std::lock_guard lock(activeFaultsMutex);
        auto found = activeFaults.find(std::this_thread::get_id());
        return found == activeFaults.end() ? std::nullopt : std::optional<Fault>(found->second);
    }

    void send(httplib::Response& response, std::string body, const std::string& contentType) {
        const auto fault = activeFault();
        if (!fault || (!fault->bytesPerSecond && !fault->truncateAfterBytes)) {
            response.set_content(std::move(body), contentType.c_str());
            return;
        }
        // Slow and/or cut-short body: a provider that paces its writes and stops early.
        auto shared = std::make_shared<std::string>(std::move(body));
        auto sent = std::make_shared<std::size_t>(0);
        const std::size_t size = shared->size();
        response.set_content_provider(
            size, contentType.c_str(),
            [this, shared, sent, fault](std::size_t offset, std::size_t length,
                                        httplib::DataSink& sink) {
                std::size_t chunk = length;
                if (fault->bytesPerSecond) {
                    chunk = std::min(chunk, std::max<std::size_t>(*fault->bytesPerSecond / 10, 1));
                }
                if (fault->truncateAfterBytes) {
                    if (*sent >= *fault->truncateAfterBytes) {
                        return false;
                    }
                    chunk = std::min(chunk, *fault->truncateAfterBytes - *sent);
                }
                if (fault->bytesPerSecond && !pause(static_cast<double>(chunk) /
                                                    static_cast<double>(*fault->bytesPerSecond))) {
                    return false;
                }
                *sent += chunk;
                return sink.write(shared->data() + offset, chunk);
            });
    }

    void sendText(httplib::Response& response, int status, const std::string& text) {
        response.status = status;
        send(response, text + "\n", "text/plain");
    }

    void sendFile(httplib::Response& response, const fs::path& root, const std::string& relative) {
        if (relative.empty() || relative.find("..") != std::string::npos) {
            sendText(response, 404, "Not found.");
            return;
        }
        auto body = DataFile::read(root / relative);
        if (!body) {
            sendText(response, 404, "Not found: " + relative);
            return;
        }
        send(response, std::move(*body), contentTypeFor(relative));
    }

    bool hasRequiredContentHeaders(const httplib::Request& request) const {
        const bool isContent =
            request.path.rfind("/vod/", 0) == 0 || request.path.rfind("/protected/", 0) == 0 ||
            request.path.rfind("/live/", 0) == 0 || request.path.rfind("/dvr/", 0) == 0;
        if (!isContent) {
            return true;
        }
        for (const auto& [name, value] : options.requiredContentHeaders) {
            if (!request.has_header(name) || request.get_header_value(name) != value) {
                return false;
            }
        }
        return true;
    }

    // /live/<rendition>/index.m3u8 and /dvr/<rendition>/index.m3u8.
    void sendLivePlaylist(const httplib::Request& request, httplib::Response& response, bool dvr) {
        const std::string name = request.matches[1];
        auto rendition = renditions.find(name);
        if (rendition == renditions.end()) {
            sendText(response, 404, "No rendition " + name + ".");
            return;
        }
        const Date time = now();
        std::string text;
        if (!dvr) {
            text = live->live(rendition->second, time);
        } else {
            std::optional<Date> from;
            if (auto behind = integerParameter(request, "dvr"); behind && *behind >= 0) {
                from = time.addingTimeInterval(-static_cast<double>(*behind) / 1000.0);
            } else if (auto start = integerParameter(request, "startTime")) {
                from = Date::fromReferenceDate(static_cast<double>(*start) / 1000.0);
            }
            text = live->dvr(rendition->second, time, from);
        }
        response.set_header("Cache-Control", "no-cache");
        send(response, std::move(text), "application/vnd.apple.mpegurl");
    }

    void routes() {
        const fs::path vod = content->directory() / "vod";
        const fs::path protectedRoot = content->directory() / "protected";

        server.set_pre_routing_handler(
            [this](const httplib::Request& request, httplib::Response& response) {
                {
                    std::lock_guard lock(requestsMutex);
                    const std::string query = rawQuery(request);
                    requests.push_back(request.method + " " + request.path +
                                       (query.empty() ? "" : "?" + query));
                }
                if (!hasRequiredContentHeaders(request)) {
                    sendText(response, 403, "A required header is missing.");
                    return httplib::Server::HandlerResponse::Handled;
                }
                const auto currentFault = chooseFault(request.path);
                if (!currentFault) {
                    return httplib::Server::HandlerResponse::Unhandled;
                }
                if (currentFault->delaySeconds > 0 && !pause(currentFault->delaySeconds)) {
                    TcpConnections::shutDown(port, request.remote_port);
                    return httplib::Server::HandlerResponse::Handled;
                }
                if (currentFault->dropConnection) {
                    TcpConnections::shutDown(port, request.remote_port);
                    response.status = 500;
                    return httplib::Server::HandlerResponse::Handled;
                }
                if (currentFault->status) {
                    sendText(response, *currentFault->status,
                             "Fault injected: status " + std::to_string(*currentFault->status));
                    return httplib::Server::HandlerResponse::Handled;
                }
                return httplib::Server::HandlerResponse::Unhandled;
            });

        server.Get("/vod/(.+)",
                   [this, vod](const httplib::Request& request, httplib::Response& response) {
                       sendFile(response, vod, request.matches[1]);
                   });
        server.Get("/protected/(.+)", [this, protectedRoot](const httplib::Request& request,
                                                            httplib::Response& response) {
            sendFile(response, protectedRoot, request.matches[1]);
        });
        if (fullHd) {
            server.Get("/hd/(.+)", [this, hd = fullHd->directory()](const httplib::Request& request,
                                                                    httplib::Response& response) {
                sendFile(response, hd, request.matches[1]);
            });
        }
        for (const char* kind : {"live", "dvr"}) {
            const bool dvr = std::string(kind) == "dvr";
            server.Get("/" + std::string(kind) + "/master.m3u8",
                       [this](const httplib::Request& request, httplib::Response& response) {
                           response.set_header("Cache-Control", "no-cache");
                           send(response, content->masterPlaylist(false, rawQuery(request)),
                                "application/vnd.apple.mpegurl");
                       });
            server.Get("/" + std::string(kind) + "/([^/]+)/index\\.m3u8",
                       [this, dvr](const httplib::Request& request, httplib::Response& response) {
                           sendLivePlaylist(request, response, dvr);
                       });
            server.Get("/" + std::string(kind) + "/(.+)",
                       [this, vod](const httplib::Request& request, httplib::Response& response) {
                           sendFile(response, vod, request.matches[1]);
                       });
        }

        server.Get("/fps/cert", [this](const httplib::Request&, httplib::Response& response) {
            auto answer = licenses->certificate();
            response.status = answer.status;
            send(response, std::move(answer.body), answer.contentType);
        });
        server.Post("/fps/license",
                    [this](const httplib::Request& request, httplib::Response& response) {
                        auto answer = licenses->license(
                            [&request](const std::string& name) -> std::optional<std::string> {
                                if (!request.has_header(name)) {
                                    return std::nullopt;
                                }
                                return request.get_header_value(name);
                            },
                            request.body);
                        response.status = answer.status;
                        send(response, std::move(answer.body), answer.contentType);
                    });

        server.Get("/track/received", [this](const httplib::Request&, httplib::Response& response) {
            send(response, beacons.json().dump(), "application/json");
        });
        server.Delete("/track/received",
                      [this](const httplib::Request&, httplib::Response& response) {
                          beacons.clear();
                          response.status = 204;
                      });
        server.Get("/track/.+/(init|events)\\.gif", [this](const httplib::Request& request,
                                                           httplib::Response& response) {
            beacons.record(request.path, rawQuery(request));
            response.set_header("Cache-Control", "no-store");
            send(response,
                 std::string(reinterpret_cast<const char*>(transparentGif), sizeof transparentGif),
                 "image/gif");
        });

        server.Get(
            "/redirect", [this](const httplib::Request& request, httplib::Response& response) {
                const std::string target = request.get_param_value("to");
                // Only paths on this origin: a redirect never leads off loopback.
                if (target.empty() || target.front() != '/' || target.rfind("//", 0) == 0) {
                    sendText(response, 400, "The \"to\" parameter must be a path on this origin.");
                    return;
                }
                response.set_redirect("http://127.0.0.1:" + std::to_string(port) + target, 302);
            });

        server.set_error_handler(
            [this](const httplib::Request& request, httplib::Response& response) {
                if (response.status == 404 && response.body.empty()) {
                    sendText(response, 404, "Not found: " + request.path);
                }
            });
    }
};

SampleOrigin::SampleOrigin(OriginOptions options)
    : impl_(std::make_unique<Impl>(std::move(options))) {}

SampleOrigin::~SampleOrigin() {
    stop();
}

bool SampleOrigin::isLoopbackHost(const std::string& host) {
    return host == "127.0.0.1" || host == "localhost";
}

std::optional<Error> SampleOrigin::start() {
    auto& impl = *impl_;
    if (impl.thread.joinable()) {
        return std::nullopt;
    }
    if (!isLoopbackHost(impl.options.host)) {
        return Error::withDescription(
            SampleContent::errorDomain, 2,
            "The origin serves on loopback only; refusing host \"" + impl.options.host + "\".");
    }
    if (!impl.content) {
        auto prepared = SampleContent::prepare(impl.options.cacheRoot);
        if (auto* error = std::get_if<Error>(&prepared)) {
            return *error;
        }
        impl.content = std::move(std::get<SampleContent>(prepared));
        if (impl.options.fullHd) {
            auto hd = FullHdContent::prepare(impl.options.cacheRoot);
            if (auto* error = std::get_if<Error>(&hd)) {
                return *error;
            }
            impl.fullHd = std::move(std::get<FullHdContent>(hd));
        }
        for (const char* name : {"v0", "v1", "v2", "a_pol", "a_eng"}) {
            auto text = DataFile::read(impl.content->directory() / "vod" / name / "index.m3u8");
            auto list = text ? SegmentList::parse(*text) : std::nullopt;
            if (!list) {
                return Error::withDescription(SampleContent::errorDomain, 1,
                                              std::string("The cached rendition ") + name +
                                                  " is damaged; delete " +
                                                  impl.content->directory().string() + ".");
            }
            impl.renditions.emplace(name, std::move(*list));
        }
        std::vector<double> timeline;
        for (const auto& segment : impl.renditions.at("v0").segments()) {
            timeline.push_back(segment.duration);
        }
        impl.live.emplace(impl.options.schedule, std::move(timeline));
        impl.licenses.emplace(impl.options.certificateIdentifier,
                              std::map<std::string, Data>{
                                  {SampleContent::contentIdentifier, impl.content->contentKey()}},
                              impl.options.requiredLicenseHeaders);
        impl.routes();
    }
    // A client that goes away mid-answer must not kill the process.
    std::signal(SIGPIPE, SIG_IGN);
    // Delays and slow bodies hold a thread each; keep enough for parallel clients.
    impl.server.new_task_queue = [] {
        return new httplib::ThreadPool(24);
    };
    // Idle connections stay open as long as a usual web server keeps them (stop() shuts them
    // down). A shorter time makes the origin close connections as clients reuse them, and
    // clients then send those requests again.
    impl.server.set_keep_alive_timeout(5);
    // A small body written after its head must not wait for the client's delayed acknowledgement.
    impl.server.set_tcp_nodelay(true);
    if (impl.options.port == 0) {
        impl.port = impl.server.bind_to_any_port("127.0.0.1");
    } else {
        impl.port =
            impl.server.bind_to_port("127.0.0.1", impl.options.port) ? impl.options.port : -1;
    }
    if (impl.port <= 0) {
        return Error::withDescription(
            SampleContent::errorDomain, 3,
            "Cannot listen on 127.0.0.1:" + std::to_string(impl.options.port) + ".");
    }
    {
        std::lock_guard lock(impl.stopMutex);
        impl.stopping = false;
    }
    impl.listenerDone = false;
    impl.thread = std::thread([&impl] {
        impl.server.listen_after_bind();
        impl.listenerDone = true;
    });
    return std::nullopt;
}

void SampleOrigin::stop() {
    auto& impl = *impl_;
    if (!impl.thread.joinable()) {
        return;
    }
    {
        std::lock_guard lock(impl.stopMutex);
        impl.stopping = true;
    }
    impl.stopSignal.notify_all();
    // stop() only reaches a server whose loop is running; wait for it unless it already ended.
    while (!impl.server.is_running() && !impl.listenerDone.load()) {
        std::this_thread::yield();
    }
    impl.server.stop();
    // Idle keep-alive connections would hold the server until their time-out.
    TcpConnections::shutDown(impl.port);
    impl.thread.join();
}

bool SampleOrigin::isRunning() const {
    return impl_->thread.joinable();
}

int SampleOrigin::port() const {
    return impl_->port;
}

std::string SampleOrigin::baseUrl() const {
    return "http://127.0.0.1:" + std::to_string(impl_->port);
}

std::string SampleOrigin::url(const std::string& path) const {
    return baseUrl() + path;
}

BeaconLog& SampleOrigin::beacons() {
    return impl_->beacons;
}

FaultInjector& SampleOrigin::faults() {
    return impl_->faults;
}

const SampleContent& SampleOrigin::content() const {
    return *impl_->content;
}

const LivePlaylist& SampleOrigin::livePlaylist() const {
    return *impl_->live;
}

std::vector<std::string> SampleOrigin::requests() const {
    std::lock_guard lock(impl_->requestsMutex);
    return impl_->requests;
}

std::size_t SampleOrigin::requestCount(const std::string& pathPrefix) const {
    std::lock_guard lock(impl_->requestsMutex);
    return static_cast<std::size_t>(
        std::count_if(impl_->requests.begin(), impl_->requests.end(), [&](const std::string& line) {
            const std::size_t space = line.find(' ');
            return line.compare(space + 1, pathPrefix.size(), pathPrefix) == 0;
        }));
}

void SampleOrigin::clearRequests() {
    std::lock_guard lock(impl_->requestsMutex);
    impl_->requests.clear();
}

Date SampleOrigin::now() const {
    return impl_->now();
}

}  // namespace zarvo::origin
