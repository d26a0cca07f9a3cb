#include "zarvo/media/gst/DemuxerVariantLimiter.h"

#include <string_view>

#include "zarvo/media/model/PlayerItem.h"

namespace zarvo {

DemuxerVariantLimiter::Preferences DemuxerVariantLimiter::Preferences::of(const PlayerItem& item) {
    return {item.preferredPeakBitRate(), item.preferredMaximumResolution(),
            item.preferredVariantUri()};
}

void DemuxerVariantLimiter::adopt(GstElement* element) {
    GstElementFactory* factory = gst_element_get_factory(element);
    if (factory == nullptr || std::string_view(GST_OBJECT_NAME(factory)) != "hlsdemux2") {
        return;
    }
    std::lock_guard lock(mutex_);
    demuxer_ = retainGst(element);
    applyLocked();
}

void DemuxerVariantLimiter::set(const PlayerItem& item) {
    std::lock_guard lock(mutex_);
    preferences_ = Preferences::of(item);
    applyLocked();
}

ResourceSession::MasterServing DemuxerVariantLimiter::reset(const PlayerItem& item) {
    GstRef<GstElement> demuxer;  // unreferenced once the lock is released
    std::lock_guard lock(mutex_);
    demuxer = std::move(demuxer_);
    preferences_ = Preferences::of(item);
    variants_.clear();
    // Held weakly: a session that outlives its playback keeps neither the limiter nor the
    // demuxer it holds.
    return
        [weakSelf = weak_from_this(), item = ++item_](const HlsPlaylistRewriter::Result& master) {
            if (auto self = weakSelf.lock()) {
                self->setVariants(item, VariantLimits::variantsOf(master));
            }
        };
}

void DemuxerVariantLimiter::setVariants(std::uint64_t item,
                                        std::vector<PlayerItemVariant> variants) {
    std::lock_guard lock(mutex_);
    if (item != item_) {
        return;
    }
    variants_ = std::move(variants);
    applyLocked();
}

void DemuxerVariantLimiter::applyLocked() {
    if (demuxer_) {
        VariantLimits::of(variants_, preferences_.peakBitRate, preferences_.maximumResolution,
                          preferences_.chosenUri)
            .applyTo(demuxer_.get());
    }
}

}  // namespace zarvo
