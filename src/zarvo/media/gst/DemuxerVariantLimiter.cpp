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

void DemuxerVariantLimiter::set(const Preferences& preferences) {
    std::lock_guard lock(mutex_);
    preferences_ = preferences;
    applyLocked();
}

std::uint64_t DemuxerVariantLimiter::reset(const Preferences& preferences) {
    GstRef<GstElement> demuxer;  // unreferenced once the lock is released
    std::lock_guard lock(mutex_);
    demuxer = std::move(demuxer_);
    preferences_ = preferences;
    variants_.clear();
    return ++item_;
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
