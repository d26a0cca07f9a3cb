#pragma once

#include "zarvo/platform/Export.h"

namespace zarvo {

class ZMPlayer;

/// Learns when the current item's playback stalls (runs out of media while playing) and when
/// it plays again. The player holds it weakly (ZMPlayer::setStatisticsDelegate()); calls come on
/// the main thread. The figures so far are ZMPlayer::playbackStatistics() at any time.
class ZARVO_EXPORT ZMPlaybackStatisticsDelegate {
public:
    virtual ~ZMPlaybackStatisticsDelegate() = default;

    /// Playback has run out of media and waits for more.
    virtual void playerDidStartStall(ZMPlayer& player) = 0;
    /// The stall that began last has ended after `duration` seconds.
    virtual void playerDidEndStall(ZMPlayer& player, double duration) = 0;
};

}  // namespace zarvo
