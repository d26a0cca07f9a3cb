#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <gst/gst.h>

#include "zarvo/media/gst/GstHandle.h"
#include "zarvo/media/gst/StreamSelection.h"

namespace zarvo {

// Answers the stream collections that the adaptive demuxer posts with the streams the current
// item wants (StreamSelection), and sends select-streams only when they differ from those last
// sent for that collection. The select-streams goes to the element that posted the collection,
// not through playbin3: playbin3 (1.22) holds its own lock while the event travels down to the
// demuxer and waits there for the demuxer's track lock; the demuxer, setting up its outputs for
// the previous selection, holds that lock while the elements after it post messages that
// playbin3 handles under its own lock. Quick switches then lock up the pipeline.
class StreamSelector {
public:
    // On a streaming thread: keeps a STREAM_COLLECTION message's collection and the element that
    // posted it, to be answered from the main thread (answering on the posting thread would wait
    // on the demuxer's lock, which that thread holds). False for any other message.
    bool keep(GstMessage* message);
    // Main thread: selects what `wanted` names in the collection kept, if any (false: none yet).
    bool select(const StreamSelection::Wanted& wanted);
    // A new item: its demuxer posts collections of its own.
    void reset();

private:
    std::mutex mutex_;
    GstRef<GstStreamCollection> collection_;
    GstRef<GstElement> source_;             // the element that posted it
    std::vector<std::string> selected_;     // the stream ids last sent, sorted
    GstRef<GstStreamCollection> answered_;  // the collection they were sent for
};

}  // namespace zarvo
