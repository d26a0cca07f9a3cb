#include "zarvo/media/gst/SubtitleStyling.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace zarvo {

namespace {

std::string factoryName(GstElement* element) {
    GstElementFactory* factory = gst_element_get_factory(element);
    return factory ? GST_OBJECT_NAME(factory) : "";
}

}  // namespace

std::string SubtitleStyling::fontDescription(const std::vector<TextStyleRule>& rules) {
    std::string family = "Sans";
    double size = 100;
    bool bold = false;
    bool italic = false;
    for (const auto& rule : rules) {
        family = rule.fontFamilyName.value_or(family);
        size = rule.relativeFontSize.value_or(size);
        bold = rule.bold.value_or(bold);
        italic = rule.italic.value_or(italic);
    }
    constexpr double defaultPoints = 18;
    const int points = std::max(1, static_cast<int>(std::lround(defaultPoints * size / 100.0)));
    return family + (bold ? " Bold" : "") + (italic ? " Italic" : "") + " " +
           std::to_string(points);
}

std::uint32_t SubtitleStyling::argb(const TextStyleRule::Color& color) {
    auto channel = [](double value) {
        return static_cast<std::uint32_t>(std::lround(std::clamp(value, 0.0, 1.0) * 255.0));
    };
    return (channel(color.alpha) << 24) | (channel(color.red) << 16) | (channel(color.green) << 8) |
           channel(color.blue);
}

void SubtitleStyling::setRules(std::vector<TextStyleRule> rules) {
    {
        std::lock_guard lock(mutex_);
        rules_ = std::move(rules);
        ++version_;
    }
    restyle();
}

void SubtitleStyling::setShown(bool shown) {
    {
        std::lock_guard lock(mutex_);
        if (shown_ != shown) {
            shown_ = shown;
            ++version_;
        }
    }
    restyle();
}

void SubtitleStyling::adopt(GstElement* element) {
    const std::string name = factoryName(element);
    if (name != "subtitleoverlay" && name != "textoverlay") {
        return;
    }
    if (name == "subtitleoverlay") {
        if (GstRef<GstPad> input(gst_element_get_static_pad(element, "subtitle_sink")); input) {
            gst_pad_add_probe(input.get(),
                              static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER |
                                                           GST_PAD_PROBE_TYPE_BUFFER_LIST),
                              dropUnrenderedText, nullptr, nullptr);
        }
    }
    {
        std::lock_guard lock(mutex_);
        overlays_.push_back(retainGst(element));
    }
    // Again if the style changed meanwhile: the others may have taken a newer one.
    for (Style current = style();;) {
        apply(element, current);
        Style now = style();
        if (now.version == current.version) {
            return;
        }
        current = std::move(now);
    }
}

void SubtitleStyling::forgetOverlays() {
    std::vector<GstRef<GstElement>> overlays;
    {
        std::lock_guard lock(mutex_);
        overlays.swap(overlays_);
    }
}

// A silent subtitle overlay that has no renderer yet passes the video through and leaves its
// subtitle input connected to nothing. The first cue pushed there would come back "not linked",
// which stops the queue in front of it for good; when the text stream's end then reaches that
// queue, it posts a stream error, which can beat the end of playback to the bus and fail an
// item that played to its end. Cues with nowhere to go are dropped here instead. Once the
// subtitles are shown, the overlay makes its renderer and the cues go through again.
GstPadProbeReturn SubtitleStyling::dropUnrenderedText(GstPad* pad, GstPadProbeInfo*, gpointer) {
    if (!GST_IS_GHOST_PAD(pad)) {
        return GST_PAD_PROBE_OK;
    }
    GstRef<GstPad> target(gst_ghost_pad_get_target(GST_GHOST_PAD(pad)));
    return target ? GST_PAD_PROBE_OK : GST_PAD_PROBE_DROP;
}

SubtitleStyling::Style SubtitleStyling::style() const {
    std::lock_guard lock(mutex_);
    return {shown_, rules_, version_};
}

void SubtitleStyling::restyle() {
    std::vector<GstRef<GstElement>> overlays;
    {
        std::lock_guard lock(mutex_);
        for (const auto& overlay : overlays_) {
            overlays.push_back(retainGst(overlay.get()));
        }
    }
    const Style current = style();
    for (const auto& overlay : overlays) {
        apply(overlay.get(), current);
    }
}

void SubtitleStyling::apply(GstElement* element, const Style& style) {
    const std::string name = factoryName(element);
    const gboolean silent = style.shown ? FALSE : TRUE;
    const std::string font = fontDescription(style.rules);
    if (name == "subtitleoverlay") {
        g_object_set(element, "silent", silent, "font-desc", font.c_str(), nullptr);
        return;
    }
    // Video never waits for subtitles: a rendition with nothing to say must not stall it.
    g_object_set(element, "wait-text", FALSE, "silent", silent, "font-desc", font.c_str(), nullptr);
    std::optional<TextStyleRule::Color> foreground;
    std::optional<TextStyleRule::Color> background;
    for (const auto& rule : style.rules) {
        foreground = rule.foregroundColor ? rule.foregroundColor : foreground;
        background = rule.backgroundColor ? rule.backgroundColor : background;
    }
    g_object_set(element, "color", static_cast<guint>(foreground ? argb(*foreground) : 0xffffffffu),
                 "shaded-background", background ? TRUE : FALSE, nullptr);
    if (background) {
        const auto shading =
            static_cast<guint>(std::lround(std::clamp(background->alpha, 0.0, 1.0) * 255));
        g_object_set(element, "shading-value", shading, nullptr);
    }
}

}  // namespace zarvo
