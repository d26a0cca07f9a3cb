#include "zarvo/media/gst/StreamSelector.h"

#include <algorithm>

namespace zarvo {

namespace {

std::vector<StreamSelection::Stream> streamsOf(GstStreamCollection* collection) {
    using Type = StreamSelection::Type;
    std::vector<StreamSelection::Stream> streams;
    const guint count = gst_stream_collection_get_size(collection);
    for (guint i = 0; i < count; ++i) {
        GstStream* stream = gst_stream_collection_get_stream(collection, i);
        const char* id = gst_stream_get_stream_id(stream);
        if (id == nullptr) {
            continue;
        }
        const GstStreamType type = gst_stream_get_stream_type(stream);
        streams.push_back({id, (type & GST_STREAM_TYPE_VIDEO)   ? Type::video
                               : (type & GST_STREAM_TYPE_AUDIO) ? Type::audio
                               : (type & GST_STREAM_TYPE_TEXT)  ? Type::text
                                                                : Type::other});
    }
    return streams;
}

}  // namespace

bool StreamSelector::keep(GstMessage* message) {
    if (GST_MESSAGE_TYPE(message) != GST_MESSAGE_STREAM_COLLECTION) {
        return false;
    }
    GstStreamCollection* collection = nullptr;
    gst_message_parse_stream_collection(message, &collection);
    GstRef<GstStreamCollection> owned(collection);
    if (!owned) {
        return false;
    }
    GstObject* source = GST_MESSAGE_SRC(message);
    std::lock_guard lock(mutex_);
    collection_ = std::move(owned);
    source_.reset(GST_IS_ELEMENT(source) ? GST_ELEMENT(gst_object_ref(source)) : nullptr);
    return true;
}

bool StreamSelector::select(const StreamSelection::Wanted& wanted) {
    GstRef<GstStreamCollection> collection;
    GstRef<GstElement> source;
    std::vector<std::string> chosen;
    {
        std::lock_guard lock(mutex_);
        if (!collection_ || !source_) {
            return false;
        }
        collection.reset(GST_STREAM_COLLECTION(gst_object_ref(collection_.get())));
        source.reset(GST_ELEMENT(gst_object_ref(source_.get())));
    }
    const auto streams = streamsOf(collection.get());
    {
        std::lock_guard lock(mutex_);
        chosen = StreamSelection::choose(streams, wanted, selected_);
        std::sort(chosen.begin(), chosen.end());
        if (chosen == selected_ && collection.get() == answered_.get()) {
            return true;
        }
        selected_ = chosen;
        answered_.reset(GST_STREAM_COLLECTION(gst_object_ref(collection.get())));
    }
    GList* list = nullptr;
    for (const auto& id : chosen) {
        list = g_list_append(list, g_strdup(id.c_str()));
    }
    if (list != nullptr) {
        gst_element_send_event(source.get(), gst_event_new_select_streams(list));
    }
    g_list_free_full(list, g_free);
    return true;
}

void StreamSelector::reset() {
    std::lock_guard lock(mutex_);
    collection_.reset();
    source_.reset();
    selected_.clear();
    answered_.reset();
}

}  // namespace zarvo
