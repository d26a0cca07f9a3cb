// zm-origin: serves the sample origin on loopback until interrupted.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "zarvo/platform/Date.h"

#include "origin/SampleOrigin.h"

namespace {

volatile std::sig_atomic_t interrupted = 0;

void onSignal(int) {
    interrupted = 1;
}

int usage(const char* message) {
    if (message) {
        std::cerr << "zm-origin: " << message << "\n";
    }
    std::cerr << "usage: zm-origin [--port N] [--host 127.0.0.1] [--fault PREFIX:STATUS[:COUNT]]"
                 " [--delay PREFIX:MS]\n"
                 "       [--license-header NAME:VALUE] [--content-header NAME:VALUE] "
                 "[--first-ad-after SECONDS]\n"
                 "       [--cache DIR]\n";
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace zarvo::origin;
    OriginOptions options;
    std::vector<Fault> faults;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "-h" || arg == "--help") {
            usage(nullptr);
            return 0;
        }
        if (i + 1 >= argc) {
            return usage(("missing value for " + arg).c_str());
        }
        const std::string value = argv[++i];
        if (arg == "--port") {
            char* end = nullptr;
            const long port = std::strtol(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || port < 0 || port > 65535) {
                return usage(("invalid port " + value).c_str());
            }
            options.port = static_cast<int>(port);
        } else if (arg == "--host") {
            if (!SampleOrigin::isLoopbackHost(value)) {
                return usage(("refusing to serve on " + value + ": loopback only").c_str());
            }
            options.host = value;
        } else if (arg == "--fault") {
            auto fault = Fault::parseStatus(value);
            if (!fault) {
                return usage(("invalid fault " + value).c_str());
            }
            faults.push_back(*fault);
        } else if (arg == "--delay") {
            auto fault = Fault::parseDelay(value);
            if (!fault) {
                return usage(("invalid delay " + value).c_str());
            }
            faults.push_back(*fault);
        } else if (arg == "--license-header" || arg == "--content-header") {
            const std::size_t colon = value.find(':');
            if (colon == 0 || colon == std::string::npos) {
                return usage(("invalid header " + value).c_str());
            }
            auto& headers = arg == "--license-header" ? options.requiredLicenseHeaders
                                                      : options.requiredContentHeaders;
            headers[value.substr(0, colon)] = value.substr(colon + 1);
        } else if (arg == "--first-ad-after") {
            char* end = nullptr;
            const double seconds = std::strtod(value.c_str(), &end);
            if (value.empty() || *end != '\0' || !(seconds >= 0) ||
                seconds > options.schedule.adInterval) {
                return usage(("invalid delay before the first ad " + value).c_str());
            }
            options.schedule.beginAdBreakAfter(seconds, zarvo::Date::systemNow());
        } else if (arg == "--cache") {
            options.cacheRoot = value;
        } else {
            return usage(("unknown option " + arg).c_str());
        }
    }

    SampleOrigin origin(options);
    for (auto& fault : faults) {
        origin.faults().add(std::move(fault));
    }
    if (auto error = origin.start()) {
        std::cerr << "zm-origin: " << error->localizedDescription() << "\n";
        return 1;
    }
    std::printf("zm-origin serving %s\n", origin.baseUrl().c_str());
    for (const char* path :
         {"/vod/master.m3u8", "/protected/master.m3u8", "/live/master.m3u8", "/dvr/master.m3u8"}) {
        std::printf("  %s\n", origin.url(path).c_str());
    }
    std::printf("  certificate %s\n  licence     %s\n  beacons     %s\n",
                origin.url("/fps/cert").c_str(), origin.url("/fps/license").c_str(),
                origin.url("/track/received").c_str());
    std::fflush(stdout);

    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    sigset_t none;
    sigemptyset(&none);
    while (!interrupted) {
        sigsuspend(&none);
    }
    origin.stop();
    return 0;
}
