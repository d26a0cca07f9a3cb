#pragma once

#include <optional>

#include <gst/gst.h>

#include "zarvo/media/model/Player.h"
#include "zarvo/platform/Error.h"

namespace zarvo {

// What the pipeline's bus and state mean for the player: the time control status and waiting
// reason a playback reports, and the error an error message stands for.
struct BusStatusMapper {
    struct TimeControl {
        Player::TimeControlStatus status = Player::TimeControlStatus::paused;
        std::optional<Player::WaitingReason> reason;
        bool operator==(const TimeControl&) const = default;
    };
    // What the playback knows when it reports.
    struct Facts {
        float rate = 0;
        bool stopped = false;  // the item failed or ended, or there is no pipeline
        bool hasItem = false;
        bool prerolled = false;
        bool seeking = false;  // a host's seek is in progress or waiting
        bool buffering = false;
        GstState state = GST_STATE_NULL;
        GstState pending = GST_STATE_VOID_PENDING;
        TimeControl reported;  // what was reported last
    };
    static TimeControl timeControl(const Facts& facts);

    struct Failure {
        Error error;
        // A plugin or codec is missing: the player cannot play anything, not just this item.
        bool missingElement = false;
    };
    // The failure an error message reports; `cause` is what the resource session last failed
    // to serve, which explains most of them.
    static Failure failureOf(GstMessage* error, const std::optional<Error>& cause);
};

}  // namespace zarvo
