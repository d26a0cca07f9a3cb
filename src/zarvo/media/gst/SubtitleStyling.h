#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include <gst/gst.h>

#include "zarvo/media/gst/GstHandle.h"
#include "zarvo/media/model/TextStyleRule.h"

namespace zarvo {

// How the pipeline's subtitle overlays draw: the item's text style rules, and whether subtitles
// are shown at all (a text stream stays selected when they are off; hiding it is the overlay's
// job). Overlays are styled outside the lock, because an overlay calls back into the pipeline's
// element-added handlers while it holds its own; a version counts the changes, so that an
// overlay that appears while the main thread restyles the others ends with the newest style.
class SubtitleStyling {
public:
    // "Sans Bold Italic 27": the font of the rules, later rules over earlier ones, sized from
    // 18 points at 100 percent.
    static std::string fontDescription(const std::vector<TextStyleRule>& rules);
    // 0xAARRGGBB, each channel clamped to 0...1 before scaling.
    static std::uint32_t argb(const TextStyleRule::Color& color);

    // Each restyles every overlay known. Any thread.
    void setRules(std::vector<TextStyleRule> rules);
    void setShown(bool shown);
    // An element the pipeline set up: subtitle and text overlays are styled and kept.
    void adopt(GstElement* element);
    // The overlays went with their pipeline.
    void forgetOverlays();

private:
    struct Style {
        bool shown = false;
        std::vector<TextStyleRule> rules;
        std::uint64_t version = 0;
    };
    Style style() const;
    void restyle();
    static void apply(GstElement* element, const Style& style);
    static GstPadProbeReturn dropUnrenderedText(GstPad* pad, GstPadProbeInfo*, gpointer);

    mutable std::mutex mutex_;
    bool shown_ = false;
    std::vector<TextStyleRule> rules_;
    std::uint64_t version_ = 0;
    std::vector<GstRef<GstElement>> overlays_;
};

}  // namespace zarvo
