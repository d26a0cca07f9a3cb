#pragma once

#include <filesystem>

namespace zarvo::origin {

// A real-time HLS packager: the ffmpeg tool encoding test pattern and tone as it plays (-re)
// into a folder, as a live encoder does: a sliding window of five 2-second segments in
// index.m3u8, each segment deleted once it has left the window, and a one-line master.m3u8 over
// it. It stops when the object goes.
class LivePackager {
public:
    // Starts packaging `seconds` of media into `folder` (which it makes).
    LivePackager(std::filesystem::path folder, int seconds);
    ~LivePackager();
    LivePackager(const LivePackager&) = delete;
    LivePackager& operator=(const LivePackager&) = delete;

    bool started() const { return pid_ > 0; }
    // How many segments the current media playlist lists.
    int segmentsListed() const;
    // Whether the first segment has left the window and its file is gone.
    bool firstSegmentDeleted() const;

private:
    std::filesystem::path folder_;
    int pid_ = -1;
};

}  // namespace zarvo::origin
