#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include "zarvo/platform/Export.h"
#include "zarvo/platform/Uuid.h"
#include "zarvo/tracking/ZMTrackingStoredSession.h"

namespace zarvo {

/// Reads the session files that earlier runs left behind and sends what they hold, once per
/// process. Every player asks the shared instance to do so when it is created.
///
/// The files are in `Library/Caches/TrackingSessions/` of the application home. The restore
/// reads every file there, those of the sessions of this process included: restore before
/// the first ZMTrackingSession starts (making the first ZMPlayer does it).
class ZARVO_EXPORT ZMTrackingSessionsRestoreManager {
public:
    /// The instance the players use.
    static std::shared_ptr<ZMTrackingSessionsRestoreManager> sharedManager();

    /// A manager of its own (the shared one is for the SDK).
    ZMTrackingSessionsRestoreManager() = default;

    /// Reads every session file the first time; later calls do nothing. Files whose name is
    /// not UUID text, or whose content cannot be read, are removed.
    void restoreSessionsIfNotRestored();
    /// Takes on every restored session not yet taken on: a session that was initialised
    /// sends its events in one beacon and its file goes once it was delivered; any other
    /// file goes without a request. A failed beacon leaves the file for the next run.
    void sendAllRestoredSessions();

    /// The identifiers of the sessions read, in file-name order.
    std::vector<Uuid> storedSessionsIds() const;

    /// Beacons sent by sendAllRestoredSessions() and not yet answered.
    std::size_t pendingSendsCount() const;

private:
    // The count of beacons in flight, shared with their completions, which may outlive us.
    struct PendingSends {
        mutable std::mutex mutex;
        std::size_t count = 0;
    };

    void send(const std::shared_ptr<ZMTrackingStoredSession>& session);

    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<ZMTrackingStoredSession>> storedSessions_;
    bool wasRestoreCalled_ = false;
    const std::shared_ptr<PendingSends> pendingSends_ = std::make_shared<PendingSends>();
};

}  // namespace zarvo
