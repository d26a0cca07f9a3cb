#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "zarvo/platform/Export.h"

namespace zarvo {

// A player event that the application reports to a tracking session. Every kind carries one
// payload: an integer for codes 0-8, a text (a track's language or name) for codes 9 and 10.
class ZARVO_EXPORT ZMTrackingEvent {
public:
    // Declaration order gives each kind its numeric code.
    enum class Kind {
        playing,
        buffering,
        paused,
        seeking,
        videoTrackChanged,
        complete,
        stopped,
        closed,
        error,
        audioTrackChanged,
        subtitleTrackChanged,
    };

    static ZMTrackingEvent playing(std::int64_t value) { return {Kind::playing, value}; }
    static ZMTrackingEvent buffering(std::int64_t value) { return {Kind::buffering, value}; }
    static ZMTrackingEvent paused(std::int64_t value) { return {Kind::paused, value}; }
    static ZMTrackingEvent seeking(std::int64_t value) { return {Kind::seeking, value}; }
    static ZMTrackingEvent videoTrackChanged(std::int64_t value) {
        return {Kind::videoTrackChanged, value};
    }
    static ZMTrackingEvent complete(std::int64_t value) { return {Kind::complete, value}; }
    static ZMTrackingEvent stopped(std::int64_t value) { return {Kind::stopped, value}; }
    static ZMTrackingEvent closed(std::int64_t value) { return {Kind::closed, value}; }
    static ZMTrackingEvent error(std::int64_t value) { return {Kind::error, value}; }
    static ZMTrackingEvent audioTrackChanged(std::string value) {
        return {Kind::audioTrackChanged, std::move(value)};
    }
    static ZMTrackingEvent subtitleTrackChanged(std::string value) {
        return {Kind::subtitleTrackChanged, std::move(value)};
    }

    // An event from its kind's name ("playing", "audioTrackChanged") and its payload as text;
    // nothing for an unknown name or an integer kind whose text is not a decimal integer.
    static std::optional<ZMTrackingEvent> fromText(std::string_view kindName,
                                                   std::string_view valueText);

    Kind kind() const { return kind_; }
    std::int64_t code() const { return static_cast<std::int64_t>(kind_); }
    // The payload as text: decimal for integer kinds, the text itself otherwise.
    std::string valueText() const;

    static std::string_view name(Kind kind);
    static std::optional<Kind> kindNamed(std::string_view name);

    bool operator==(const ZMTrackingEvent&) const = default;

private:
    ZMTrackingEvent(Kind kind, std::variant<std::int64_t, std::string> payload)
        : kind_(kind), payload_(std::move(payload)) {}

    Kind kind_;
    std::variant<std::int64_t, std::string> payload_;
};

}  // namespace zarvo
