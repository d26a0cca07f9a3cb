#pragma once

#include <memory>
#include <utility>

#include <gst/gst.h>

#include "zarvo/platform/GlibMemory.h"

namespace zarvo {

// Owning references to GStreamer objects: one unref per reference taken.
struct GstObjectUnref {
    void operator()(gpointer object) const {
        if (object != nullptr) {
            gst_object_unref(object);
        }
    }
};
template <typename T>
using GstRef = std::unique_ptr<T, GstObjectUnref>;

// Adopts a reference the caller already owns (a "transfer full" return value).
template <typename T>
GstRef<T> adoptGst(T* object) {
    return GstRef<T>(object);
}
// Takes a new reference, sinking a floating one.
template <typename T>
GstRef<T> retainGst(T* object) {
    return GstRef<T>(object != nullptr ? static_cast<T*>(gst_object_ref_sink(object)) : nullptr);
}

struct GstMiniObjectUnref {
    void operator()(gpointer object) const {
        if (object != nullptr) {
            gst_mini_object_unref(GST_MINI_OBJECT_CAST(object));
        }
    }
};
using GstMessageRef = std::unique_ptr<GstMessage, GstMiniObjectUnref>;
using GstQueryRef = std::unique_ptr<GstQuery, GstMiniObjectUnref>;
using GstCapsRef = std::unique_ptr<GstCaps, GstMiniObjectUnref>;

}  // namespace zarvo
