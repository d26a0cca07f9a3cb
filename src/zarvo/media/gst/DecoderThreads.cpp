#include "zarvo/media/gst/DecoderThreads.h"

#include <cstring>

#include "zarvo/media/gst/GstHandle.h"

namespace zarvo {

namespace {

constexpr const char* threadsProperty = "max-threads";
constexpr long long oneThreadLargestPicture = 960LL * 540;

bool isVideoDecoder(GstElement* element) {
    GstElementFactory* factory = gst_element_get_factory(element);
    const char* klass =
        factory ? gst_element_factory_get_metadata(factory, GST_ELEMENT_METADATA_KLASS) : nullptr;
    return klass != nullptr && std::strstr(klass, "Decoder") != nullptr &&
           std::strstr(klass, "Video") != nullptr;
}

}  // namespace

int DecoderThreads::forPicture(int width, int height) {
    if (width <= 0 || height <= 0) {
        return automatic;
    }
    return static_cast<long long>(width) * height <= oneThreadLargestPicture ? 1 : automatic;
}

void DecoderThreads::adopt(GstElement* element) {
    if (!isVideoDecoder(element)) {
        return;
    }
    GParamSpec* setting =
        g_object_class_find_property(G_OBJECT_GET_CLASS(element), threadsProperty);
    if (setting == nullptr || setting->value_type != G_TYPE_INT ||
        !(setting->flags & G_PARAM_WRITABLE)) {
        return;
    }
    // The probe holds nothing: it goes with the pad, and finds the decoder through it.
    if (GstRef<GstPad> pad(gst_element_get_static_pad(element, "sink")); pad) {
        gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, onCaps, nullptr, nullptr);
    }
}

GstPadProbeReturn DecoderThreads::onCaps(GstPad* pad, GstPadProbeInfo* info, gpointer) {
    GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
    if (GST_EVENT_TYPE(event) != GST_EVENT_CAPS) {
        return GST_PAD_PROBE_OK;
    }
    GstCaps* caps = nullptr;
    gst_event_parse_caps(event, &caps);
    const GstStructure* structure =
        caps != nullptr && !gst_caps_is_empty(caps) ? gst_caps_get_structure(caps, 0) : nullptr;
    int width = 0;
    int height = 0;
    if (structure != nullptr) {
        gst_structure_get_int(structure, "width", &width);
        gst_structure_get_int(structure, "height", &height);
    }
    if (GstRef<GstElement> decoder(gst_pad_get_parent_element(pad)); decoder) {
        g_object_set(decoder.get(), threadsProperty, forPicture(width, height), nullptr);
    }
    return GST_PAD_PROBE_OK;
}

}  // namespace zarvo
