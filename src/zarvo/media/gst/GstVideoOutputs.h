#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include <gst/gst.h>

#include "zarvo/media/gst/GstHandle.h"
#include "zarvo/media/model/VideoOutput.h"

namespace zarvo {

// The video sink of a player's pipeline: a bin whose tee feeds a synchronised fake sink, which
// paces and prerolls the pipeline whether or not a window shows the video, and one branch per
// window (queue ! videocrop ! videoscale ! videoconvert ! capsfilter ! ximagesink, drawing
// into the window through the video overlay). The crop and the scaled size carry the gravity;
// ximagesink centres a smaller picture on black. From the first window on, a queue of one
// picture stands between the tee and the fake sink, so that the windows get each picture
// before the fake sink waits for its time; until then, the fake sink waits on the thread that
// brings the pictures, one thread hand-over less for each of them. A window's layout follows the
// picture's size on the streaming thread, before the picture reaches it; a new layout while
// the pipeline is paused sends the paused picture through that window's branch again. Main
// thread, but for the caps probe.
class GstVideoOutputs {
public:
    // The bin, or nothing when one of its elements is missing.
    static std::shared_ptr<GstVideoOutputs> make();
    ~GstVideoOutputs();
    GstVideoOutputs(const GstVideoOutputs&) = delete;
    GstVideoOutputs& operator=(const GstVideoOutputs&) = delete;

    GstElement* sink() const { return bin_.get(); }
    // Adds, changes or (with none) removes the window `id`.
    void set(std::uint64_t id, const std::optional<VideoOutput>& output);
    // Draws the last picture into window `id` again.
    void redraw(std::uint64_t id);
    // Whether `object` belongs to a window's branch: its failures concern that window only.
    bool isWindowElement(GstObject* object) const;
    // Gives each window's sink its window again: a sink forgets it when the pipeline stops,
    // and would open a window of its own for the next item.
    void reattach();

    struct Token {
        explicit Token() = default;
    };
    explicit GstVideoOutputs(Token);

private:
    struct Branch;
    // The size of the decoded picture and its pixel aspect ratio.
    struct Picture {
        int width = 0;
        int height = 0;
        int parN = 1;
        int parD = 1;
    };

    static GstPadProbeReturn onCaps(GstPad* pad, GstPadProbeInfo* info, gpointer data);
    std::unique_ptr<Branch> makeBranch(const VideoOutput& output);
    void linkBranch(Branch& branch);
    void removeBranch(std::unique_ptr<Branch> branch);
    // Sets the branch's crop and scaled size for its output and the picture; mutex_ held.
    void layout(Branch& branch);
    // Sends the picture the paused pipeline holds through the branch again.
    void showPausedPicture(Branch& branch);
    void queueAheadOfPacedSink();

    GstRef<GstElement> bin_;
    GstElement* tee_ = nullptr;  // owned by the bin
    GstRef<GstPad> teeSink_;
    GstRef<GstPad> pacedTeePad_;        // the tee's pad that feeds the fake sink
    GstElement* pacedSink_ = nullptr;   // owned by the bin
    GstElement* pacedQueue_ = nullptr;  // owned by the bin, from the first window on
    gulong pacedQueueProbe_ = 0;
    std::atomic<bool> pacedQueueLinked_ = false;  // set by the streaming thread
    gulong capsProbe_ = 0;

    // The probes on the streaming thread read the branches, their outputs and the paced queue:
    // the main thread changes them, and the caps probe writes the picture, with the mutex held
    // (GStreamer's own locks, futexes, order these too, but ThreadSanitizer does not see them).
    mutable std::mutex mutex_;
    std::map<std::uint64_t, std::unique_ptr<Branch>> branches_;
    Picture picture_;
};

}  // namespace zarvo
