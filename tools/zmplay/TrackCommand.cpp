// zmplay track: runs one tracking session against an analytics endpoint, or resends the
// sessions that earlier runs left behind.
#include <charconv>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "zarvo/platform/RunLoop.h"
#include "zarvo/tracking/ZMTrackingSession.h"
#include "zarvo/tracking/ZMTrackingSessionsRestoreManager.h"

#include "zmplay/Command.h"

namespace zarvo::zmplay::track_command {
namespace {

constexpr auto networkTimeout = std::chrono::seconds(90);

struct PlannedEvent {
    ZMTrackingEvent event;
    std::int64_t movieOffset;
};

enum class Ending { finish, cancel, leave };

struct TrackOptions {
    std::string endpoint;
    std::optional<std::int64_t> contentId;
    std::optional<std::int64_t> customerId;
    std::optional<std::string> sessionId;
    std::int64_t productId = 0;
    std::string productType;
    std::int64_t duration = 0;
    std::string url;
    std::optional<double> minDuration;
    std::vector<PlannedEvent> events;
    Ending ending = Ending::finish;
    bool restore = false;
};

std::optional<std::int64_t> parseInteger(const std::string& text) {
    std::int64_t value = 0;
    auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || status != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

// KIND:VALUE@MOVIEOFFSET; the value may itself hold ":" and "@".
std::optional<PlannedEvent> parseEvent(const std::string& text) {
    auto colon = text.find(':');
    auto at = text.rfind('@');
    if (colon == std::string::npos || at == std::string::npos || at < colon) {
        return std::nullopt;
    }
    auto offset = parseInteger(text.substr(at + 1));
    auto event =
        ZMTrackingEvent::fromText(text.substr(0, colon), text.substr(colon + 1, at - colon - 1));
    if (!offset || !event) {
        return std::nullopt;
    }
    return PlannedEvent{*event, *offset};
}

// Fills `options` or returns the problem.
std::optional<std::string> parse(const std::vector<std::string>& arguments, TrackOptions& options) {
    int endings = 0;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& flag = arguments[i];
        if (flag == "--finish" || flag == "--cancel" || flag == "--leave") {
            options.ending = flag == "--finish"   ? Ending::finish
                             : flag == "--cancel" ? Ending::cancel
                                                  : Ending::leave;
            ++endings;
            continue;
        }
        if (flag == "--restore") {
            options.restore = true;
            continue;
        }
        if (i + 1 >= arguments.size()) {
            return "missing value after " + flag;
        }
        const std::string& value = arguments[++i];
        auto integer = [&](std::int64_t& out) -> std::optional<std::string> {
            auto parsed = parseInteger(value);
            if (!parsed) {
                return flag + " needs an integer, not '" + value + "'";
            }
            out = *parsed;
            return std::nullopt;
        };
        std::optional<std::string> problem;
        std::int64_t number = 0;
        if (flag == "--endpoint") {
            options.endpoint = value;
        } else if (flag == "--content-id") {
            problem = integer(number);
            options.contentId = number;
        } else if (flag == "--customer-id") {
            problem = integer(number);
            options.customerId = number;
        } else if (flag == "--session-id") {
            options.sessionId = value;
        } else if (flag == "--product-id") {
            problem = integer(options.productId);
        } else if (flag == "--product-type") {
            options.productType = value;
        } else if (flag == "--duration") {
            problem = integer(options.duration);
        } else if (flag == "--url") {
            options.url = value;
        } else if (flag == "--min-duration") {
            try {
                std::size_t used = 0;
                options.minDuration = std::stod(value, &used);
                if (used != value.size()) {
                    problem = "--min-duration needs a number of seconds";
                }
            } catch (const std::exception&) {
                problem = "--min-duration needs a number of seconds";
            }
        } else if (flag == "--event") {
            auto event = parseEvent(value);
            if (!event) {
                problem = "bad event '" + value + "' (expected KIND:VALUE@MOVIEOFFSET)";
            } else {
                options.events.push_back(*event);
            }
        } else {
            problem = "unknown option " + flag;
        }
        if (problem) {
            return problem;
        }
    }
    if (endings > 1) {
        return "give only one of --finish, --cancel and --leave";
    }
    if (!options.restore && (options.endpoint.empty() || !options.contentId ||
                             !options.customerId || !options.sessionId)) {
        return "--endpoint, --content-id, --customer-id and --session-id are required";
    }
    return std::nullopt;
}

bool waitWhileAwaitingNetwork(const std::shared_ptr<ZMTrackingSession>& session) {
    return RunLoop::main().runUntil([&] { return !session->isAwaitingNetwork(); }, networkTimeout);
}

int runRestore() {
    auto manager = ZMTrackingSessionsRestoreManager::sharedManager();
    manager->restoreSessionsIfNotRestored();
    manager->sendAllRestoredSessions();
    bool answered =
        RunLoop::main().runUntil([&] { return manager->pendingSendsCount() == 0; }, networkTimeout);
    for (const auto& id : manager->storedSessionsIds()) {
        std::cout << "restored: " << id.uuidString() << "\n";
    }
    if (!answered) {
        std::cerr << "zmplay track: restored beacons got no answer in time\n";
        return 1;
    }
    return 0;
}

int runSession(const TrackOptions& options) {
    ZMTrackingSessionContentInfo content(*options.contentId, *options.customerId, options.duration,
                                         options.endpoint, options.productId, options.productType,
                                         *options.sessionId, std::nullopt, options.url);
    auto session = ZMTrackingSession::make(content, ZMTrackingSessionDeviceInfo(),
                                           UrlSessionConfiguration::defaultConfiguration(),
                                           ZMTrackingSessionConfiguration(options.minDuration));
    std::cout << "localId: " << session->localId().uuidString() << "\n";
    // A session with a minimum duration does not report before it lasted that long, so
    // there is nothing on the network to wait for.
    const bool reports = !ZMTrackingSessionConfiguration(options.minDuration).hasMinimumDuration();

    session->start();
    bool answered = !reports || waitWhileAwaitingNetwork(session);
    for (const auto& planned : options.events) {
        session->addTrackingEvent(planned.event, planned.movieOffset);
        answered = answered && (!reports || waitWhileAwaitingNetwork(session));
    }
    switch (options.ending) {
        case Ending::finish:
            session->finishAndSendAllEvents();
            answered = answered && (!reports || waitWhileAwaitingNetwork(session));
            break;
        case Ending::cancel:
            session->finishAndCancel();
            break;
        case Ending::leave:
            break;
    }
    auto lastError = session->lastError();
    std::cout << "state: " << stateName(session->state()) << "\n";
    std::cout << "lastError: " << (lastError ? lastError->description() : "none") << "\n";
    if (options.ending == Ending::finish && reports && !lastError) {
        std::cout << "pending: " << session->pendingEventsCount() << "\n";
    }
    if (!answered) {
        std::cerr << "zmplay track: the endpoint gave no answer in time\n";
    }
    return answered && !lastError ? 0 : 1;
}

int runTrack(const std::vector<std::string>& arguments) {
    TrackOptions options;
    if (auto problem = parse(arguments, options)) {
        std::cerr << "zmplay track: " << *problem << "\n";
        return 2;
    }
    return options.restore ? runRestore() : runSession(options);
}

const Command::Registration registration(Command{
    "track",
    "track --endpoint URL --content-id N --customer-id N --session-id S [--product-id N] "
    "[--product-type T] [--duration N] [--url U] [--min-duration SECONDS] "
    "[--event KIND:VALUE@MOVIEOFFSET]... [--finish | --cancel | --leave] | track --restore",
    "reports one viewing to a tracking endpoint, or resends the sessions earlier runs left",
    runTrack,
});

}  // namespace
}  // namespace zarvo::zmplay::track_command
