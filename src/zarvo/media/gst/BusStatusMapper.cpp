#include "zarvo/media/gst/BusStatusMapper.h"

#include <string>

#include "zarvo/media/model/MediaError.h"
#include "zarvo/platform/GlibMemory.h"

namespace zarvo {

BusStatusMapper::TimeControl BusStatusMapper::timeControl(const Facts& facts) {
    using Status = Player::TimeControlStatus;
    using Reason = Player::WaitingReason;
    if (facts.rate <= 0 || facts.stopped) {
        return {Status::paused, std::nullopt};
    }
    if (!facts.hasItem) {
        return {Status::waitingToPlayAtSpecifiedRate, Reason::noItemToPlay};
    }
    if (!facts.prerolled) {
        return {Status::waitingToPlayAtSpecifiedRate, Reason::evaluatingBufferingRate};
    }
    if (facts.seeking) {
        return {Status::waitingToPlayAtSpecifiedRate, Reason::seeking};
    }
    if (facts.buffering) {
        return {Status::waitingToPlayAtSpecifiedRate, Reason::toMinimizeStalls};
    }
    // A pause undone before it took effect leaves the pipeline on its way back to playing:
    // that is no wait.
    if (facts.state == GST_STATE_PLAYING ||
        (facts.pending == GST_STATE_PLAYING && facts.reported.status == Status::playing)) {
        return {Status::playing, std::nullopt};
    }
    return {Status::waitingToPlayAtSpecifiedRate, Reason::evaluatingBufferingRate};
}

BusStatusMapper::Failure BusStatusMapper::failureOf(GstMessage* message,
                                                    const std::optional<Error>& cause) {
    GError* raw = nullptr;
    gchar* debug = nullptr;
    gst_message_parse_error(message, &raw, &debug);
    GErrorPtr error(raw);
    GCharPtr debugText(debug);
    Error::UserInfo info;
    if (debugText) {
        info[debugInfoKey] = debugText.get();
    }
    const std::string text = error ? error->message : "The pipeline failed.";
    const bool missing =
        error && (g_error_matches(error.get(), GST_CORE_ERROR, GST_CORE_ERROR_MISSING_PLUGIN) ||
                  g_error_matches(error.get(), GST_STREAM_ERROR, GST_STREAM_ERROR_CODEC_NOT_FOUND));
    if (missing) {
        return {makeMediaError(MediaError::missingElement, text, std::nullopt, info), true};
    }
    return {makeMediaError(MediaError::playbackFailed, text, cause, info), false};
}

}  // namespace zarvo
