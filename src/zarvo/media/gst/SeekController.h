#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include <gst/gst.h>

#include "zarvo/media/loopback/HlsPlaylistRewriter.h"
#include "zarvo/media/model/MediaTime.h"

namespace zarvo {

class TransferGate;

// The seeks of one playback. One flushing seek is in the pipeline at a time: a seek asked for
// meanwhile waits for it to preroll and replaces any other one waiting (the adaptive demuxer
// cannot take a flush while it is still restarting its downloads from the previous one). While
// segments download, a seek holds new segment requests unanswered and waits until the downloads
// under way have ended and each stream has sent its next request, so that the seek cancels
// only requests that were never answered (see TransferGate); it goes out anyway after the
// longest hold. Main thread only.
class SeekController : public std::enable_shared_from_this<SeekController> {
public:
    struct Seek {
        std::optional<std::uint64_t> id;  // none for a seek that only changes the rate
        MediaTime time;                   // invalid: where playback is when the seek is sent
        bool exact = false;
    };
    // What the controller drives.
    class Pipeline {
    public:
        virtual ~Pipeline() = default;
        // Sends a flushing seek; its sequence number, or GST_SEQNUM_INVALID when refused.
        virtual guint32 sendFlushingSeek(MediaTime time, bool exact) = 0;
        virtual MediaTime position() = 0;
        // Seek `id` is over: it landed, the pipeline refused it, or the item failed.
        virtual void seekFinished(std::uint64_t id) = 0;
        // A held seek went out.
        virtual void heldSeekSent() = 0;
    };

    explicit SeekController(std::weak_ptr<Pipeline> pipeline);

    // Where a media playlist asks playback to begin (EXT-X-START), on a timeline that begins at
    // its first segment; the demuxer does not go there itself (it starts a live stream near its
    // end).
    static std::optional<Seek> toStartOf(const HlsPlaylistRewriter::Result& playlist);

    // A new item (or none): every seek of the last one is forgotten.
    void reset(std::shared_ptr<TransferGate> gate = nullptr);
    // Kept until sendPending(): a seek before the item can take one.
    void defer(Seek seek) { pending_ = seek; }
    void request(Seek seek);
    // Sends now, or holds while segment bodies move; `id` is the host's seek, if any.
    void send(MediaTime time, bool exact, std::optional<std::uint64_t> id);
    // Sends `start`, an item's start point, unless a host's seek waits or playback stands there
    // already; whether a seek is in flight.
    bool startAt(const std::optional<Seek>& start);
    void sendPending();
    // Whether an ASYNC_DONE numbered `seqnum` is the preroll of the seek in flight (with
    // `orNone`, also when none is): if so, that seek is no longer in flight.
    bool takePreroll(guint32 seqnum, bool orNone);
    // Ends the host's seek in progress, if any.
    void finish();
    // The item failed: the host's seek ends and the waiting one is dropped.
    void abandon();

    bool inFlight() const { return inFlightSeqnum_ != GST_SEQNUM_INVALID || held_; }
    bool held() const { return held_.has_value(); }
    // A host's seek is in progress or waiting.
    bool seeking() const { return id_ || pending_; }
    bool hasPending() const { return pending_.has_value(); }
    // Where the last seek asked for goes; what the position reads until it lands.
    MediaTime target() const { return target_; }
    void setTarget(MediaTime time) { target_ = time; }

private:
    struct HeldSeek {
        MediaTime time;
        bool exact = true;
        std::optional<std::uint64_t> id;
        double since = 0;
    };
    void sendNow(MediaTime time, bool exact, std::optional<std::uint64_t> id);
    void checkHeld(std::uint64_t generation);

    const std::weak_ptr<Pipeline> pipeline_;
    std::shared_ptr<TransferGate> gate_;
    std::optional<std::uint64_t> id_;
    std::optional<Seek> pending_;
    guint32 inFlightSeqnum_ = GST_SEQNUM_INVALID;  // the flushing seek not yet prerolled
    std::optional<HeldSeek> held_;                 // waiting for segment bodies to be still
    std::uint64_t heldGeneration_ = 0;
    MediaTime target_ = MediaTime::zero();
};

}  // namespace zarvo
