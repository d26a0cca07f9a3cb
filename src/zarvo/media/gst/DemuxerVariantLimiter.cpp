#include "zarvo/media/gst/DemuxerVariantLimiter.h"

#include <string_view>

namespace zarvo {

void DemuxerVariantLimiter::adopt(GstElement* element) {
    GstElementFactory* factory = gst_element_get_factory(element);
    if (factory == nullptr || std::string_view(GST_OBJECT_NAME(factory)) != "hlsdemux2") {
        return;
    }
    std::lock_guard lock(mutex_);
    demuxer_ = retainGst(element);
    limits_.applyTo(element);
}

void DemuxerVariantLimiter::set(const VariantLimits& limits) {
    std::lock_guard lock(mutex_);
    limits_ = limits;
    if (demuxer_) {
        limits_.applyTo(demuxer_.get());
    }
}

void DemuxerVariantLimiter::reset(const VariantLimits& limits) {
    GstRef<GstElement> demuxer;  // unreferenced once the lock is released
    std::lock_guard lock(mutex_);
    demuxer = std::move(demuxer_);
    limits_ = limits;
}

}  // namespace zarvo
