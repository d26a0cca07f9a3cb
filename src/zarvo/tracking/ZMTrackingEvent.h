#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "zarvo/platform/Export.h"

namespace zarvo {

/// A player event that the application reports to a tracking session. Every kind carries one
/// payload: an integer for codes 0-8, a text (a track's language or name) for codes 9 and 10.
class ZARVO_EXPORT ZMTrackingEvent {
public:
    /// Declaration order gives each kind its numeric code: playing 0 to subtitleTrackChanged
    /// 10. The names are the cases' own ("playing", "audioTrackChanged").
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

    /// A "playing" event (code 0) with an integer payload, the application's to choose.
    static ZMTrackingEvent playing(std::int64_t value) { return {Kind::playing, value}; }
    /// A "buffering" event (code 1).
    static ZMTrackingEvent buffering(std::int64_t value) { return {Kind::buffering, value}; }
    /// A "paused" event (code 2).
    static ZMTrackingEvent paused(std::int64_t value) { return {Kind::paused, value}; }
    /// A "seeking" event (code 3).
    static ZMTrackingEvent seeking(std::int64_t value) { return {Kind::seeking, value}; }
    /// A "videoTrackChanged" event (code 4).
    static ZMTrackingEvent videoTrackChanged(std::int64_t value) {
        return {Kind::videoTrackChanged, value};
    }
    /// A "complete" event (code 5).
    static ZMTrackingEvent complete(std::int64_t value) { return {Kind::complete, value}; }
    /// A "stopped" event (code 6).
    static ZMTrackingEvent stopped(std::int64_t value) { return {Kind::stopped, value}; }
    /// A "closed" event (code 7).
    static ZMTrackingEvent closed(std::int64_t value) { return {Kind::closed, value}; }
    /// An "error" event (code 8).
    static ZMTrackingEvent error(std::int64_t value) { return {Kind::error, value}; }
    /// An "audioTrackChanged" event (code 9) with a text payload: the track's language or
    /// name.
    static ZMTrackingEvent audioTrackChanged(std::string value) {
        return {Kind::audioTrackChanged, std::move(value)};
    }
    /// A "subtitleTrackChanged" event (code 10) with a text payload, as for audio.
    static ZMTrackingEvent subtitleTrackChanged(std::string value) {
        return {Kind::subtitleTrackChanged, std::move(value)};
    }

    /// An event from its kind's name ("playing", "audioTrackChanged") and its payload as text;
    /// nothing for an unknown name or an integer kind whose text is not a decimal integer.
    static std::optional<ZMTrackingEvent> fromText(std::string_view kindName,
                                                   std::string_view valueText);

    /// The kind.
    Kind kind() const { return kind_; }
    /// The kind's numeric code, as beacons carry it.
    std::int64_t code() const { return static_cast<std::int64_t>(kind_); }
    /// The payload as text: decimal for integer kinds, the text itself otherwise.
    std::string valueText() const;

    /// The kind's name, for example "videoTrackChanged".
    static std::string_view name(Kind kind);
    /// The kind of a name; nothing for an unknown one.
    static std::optional<Kind> kindNamed(std::string_view name);

    /// Equal kind and payload.
    bool operator==(const ZMTrackingEvent&) const = default;

private:
    ZMTrackingEvent(Kind kind, std::variant<std::int64_t, std::string> payload)
        : kind_(kind), payload_(std::move(payload)) {}

    Kind kind_;
    std::variant<std::int64_t, std::string> payload_;
};

}  // namespace zarvo
