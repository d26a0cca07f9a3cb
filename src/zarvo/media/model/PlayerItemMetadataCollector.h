#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "zarvo/media/model/DateRangeMetadataGroup.h"
#include "zarvo/media/model/PlayerItemMetadataCollectorPushDelegate.h"
#include "zarvo/platform/DispatchQueue.h"
#include "zarvo/platform/Export.h"

namespace zarvo {

class MediaEngineKey;

// Gathers the EXT-X-DATERANGE groups of the media playlist that an item plays and pushes
// them to its delegate (held weakly) on the delegate's queue: each group once when it first
// appears, and again when its attributes change.
class ZARVO_EXPORT PlayerItemMetadataCollector
    : public std::enable_shared_from_this<PlayerItemMetadataCollector> {
public:
    static std::shared_ptr<PlayerItemMetadataCollector> make();

    void setDelegate(std::weak_ptr<PlayerItemMetadataCollectorPushDelegate> delegate,
                     std::shared_ptr<DispatchQueue> queue);
    std::shared_ptr<PlayerItemMetadataCollectorPushDelegate> delegate() const;
    std::shared_ptr<DispatchQueue> delegateQueue() const;

    // Engine side: the groups of a playlist just read. Tells the delegate about new and
    // changed groups; does nothing when there are none.
    void collect(const MediaEngineKey&, const std::vector<DateRangeMetadataGroup>& groups);

private:
    mutable std::mutex mutex_;
    std::weak_ptr<PlayerItemMetadataCollectorPushDelegate> delegate_;
    std::shared_ptr<DispatchQueue> queue_;
    std::map<std::string, DateRangeMetadataGroup> seen_;  // by identifier
};

}  // namespace zarvo
