#include "zarvo/tracking/ZMTrackingSessionsRestoreManager.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <system_error>

#include "zarvo/platform/DataFile.h"
#include "zarvo/tracking/ZMInternalTrackingEvent.h"
#include "zarvo/tracking/ZMTrackingSessionStorageUrls.h"

namespace zarvo {
namespace {

// The live session's clock is gone: the latest stored event tells how long it ran.
std::int64_t restoredSessionDuration(const std::vector<ZMInternalTrackingEvent>& events) {
    std::int64_t duration = 0;
    for (const auto& event : events) {
        duration = std::max(duration, event.sessionOffset);
    }
    return duration;
}

// Temporary files that saves of a killed process left behind. A younger file may belong to a
// save under way in another process, so it is left alone.
void clearOldSavingLeftovers() {
    constexpr auto leftoverAge = std::chrono::minutes(5);
    const auto now = std::filesystem::file_time_type::clock::now();
    std::error_code error;
    for (std::filesystem::directory_iterator
             it(ZMTrackingSessionStorageUrls::savingDirectory(), error),
         end;
         !error && it != end; it.increment(error)) {
        std::error_code ignored;
        auto written = it->last_write_time(ignored);
        if (!ignored && now - written > leftoverAge) {
            std::filesystem::remove(it->path(), ignored);
        }
    }
}

}  // namespace

std::shared_ptr<ZMTrackingSessionsRestoreManager>
ZMTrackingSessionsRestoreManager::sharedManager() {
    static const auto shared = std::make_shared<ZMTrackingSessionsRestoreManager>();
    return shared;
}

void ZMTrackingSessionsRestoreManager::restoreSessionsIfNotRestored() {
    std::lock_guard lock(mutex_);
    if (wasRestoreCalled_) {
        return;
    }
    wasRestoreCalled_ = true;
    clearOldSavingLeftovers();

    std::error_code error;
    std::vector<std::filesystem::path> files;
    for (std::filesystem::directory_iterator it(ZMTrackingSessionStorageUrls::directory(), error),
         end;
         !error && it != end; it.increment(error)) {
        std::error_code typeError;
        if (it->is_regular_file(typeError)) {
            files.push_back(it->path());
        }
    }
    // Directory order is arbitrary; sorted names give a stable order.
    std::sort(files.begin(), files.end());

    for (const auto& file : files) {
        std::error_code ignored;
        // Only the upper-case text that sessions write names a session file; anything else
        // could never be removed by its id and is cleared away now.
        auto id = Uuid::parse(file.filename().string());
        if (!id || id->uuidString() != file.filename().string()) {
            std::filesystem::remove(file, ignored);
            continue;
        }
        auto text = DataFile::read(file);
        auto data = text ? ZMTrackingSessionStorageData::decode(*text) : std::nullopt;
        if (!data) {
            std::filesystem::remove(file, ignored);
            continue;
        }
        storedSessions_.push_back(std::make_shared<ZMTrackingStoredSession>(*id, std::move(*data)));
    }
}

void ZMTrackingSessionsRestoreManager::sendAllRestoredSessions() {
    std::vector<std::shared_ptr<ZMTrackingStoredSession>> toSend;
    {
        std::lock_guard lock(mutex_);
        for (const auto& session : storedSessions_) {
            if (session->ongoing()) {
                continue;
            }
            session->setOngoing(true);
            const auto& data = session->storage().storageData;
            if (data.sessionState == ZMTrackingSessionStorageState::initialized &&
                !data.events.empty()) {
                std::lock_guard sendsLock(pendingSends_->mutex);
                ++pendingSends_->count;
                toSend.push_back(session);
            } else {
                // Never initialised, already delivered, or nothing left to report.
                session->storage().remove();
            }
        }
    }
    for (const auto& session : toSend) {
        send(session);
    }
}

void ZMTrackingSessionsRestoreManager::send(
    const std::shared_ptr<ZMTrackingStoredSession>& session) {
    const auto& data = session->storage().storageData;
    std::vector<UrlQueryItem> items = {
        {"version", data.deviceInfo.version},
        {"customerId", std::to_string(data.contentInfo.customerId)},
        {"sessionId", data.contentInfo.sessionId},
        {"sessionDuration", std::to_string(restoredSessionDuration(data.events))},
        {"events", ZMInternalTrackingEvent::eventsText(data.events)},
    };
    auto operation = std::make_shared<ZMTrackingNetworkOperation>(
        ZMTrackingUrlCreator{data.contentInfo.endpointUrl, ZMTrackingSessionUrlPath::report,
                             std::move(items)},
        session->urlSession());
    session->setNetworkOperation(operation);

    std::weak_ptr<ZMTrackingStoredSession> weakSession = session;
    std::weak_ptr<PendingSends> weakPending = pendingSends_;
    operation->start([weakSession, weakPending](std::optional<ZMTrackingSessionError> failure) {
        if (auto stored = weakSession.lock(); stored && !failure) {
            stored->storage().storageData.sessionState =
                ZMTrackingSessionStorageState::markedAsFinished;
            stored->storage().save();
            stored->storage().remove();
        }
        if (auto pending = weakPending.lock()) {
            std::lock_guard lock(pending->mutex);
            --pending->count;
        }
    });
}

std::vector<Uuid> ZMTrackingSessionsRestoreManager::storedSessionsIds() const {
    std::lock_guard lock(mutex_);
    std::vector<Uuid> ids;
    for (const auto& session : storedSessions_) {
        ids.push_back(session->sessionLocalId());
    }
    return ids;
}

std::size_t ZMTrackingSessionsRestoreManager::pendingSendsCount() const {
    std::lock_guard lock(pendingSends_->mutex);
    return pendingSends_->count;
}

}  // namespace zarvo
