#pragma once

#include <optional>
#include <string>
#include <vector>

#include "zarvo/media/model/MediaSelectionOption.h"

namespace zarvo {

class PlayerItem;

// Which streams of a stream collection to play, as a pure function of the collection, the
// renditions the item wants and the streams sent before: every video stream, the audio stream
// of the wanted rendition (else the first), and one text stream: the wanted subtitles, else the
// one playing before, else the first. Subtitles stay selected even when none are wanted (they
// are then not drawn): hlsdemux2 stalls playback when a text stream is added while it plays.
struct StreamSelection {
    enum class Type { video, audio, text, other };
    struct Stream {
        std::string id;  // the demuxer's stream id, e.g. "audio-English" or "hls/text-French"
        Type type = Type::other;
    };
    struct Wanted {
        std::optional<MediaSelectionOption::Rendition> audio;
        std::optional<MediaSelectionOption::Rendition> text;
    };

    // The renditions an item's media selection names.
    static Wanted wantedBy(const PlayerItem& item);
    // The ids to select, in the collection's order, video first.
    static std::vector<std::string> choose(const std::vector<Stream>& collection,
                                           const Wanted& wanted,
                                           const std::vector<std::string>& before);
    // Whether a stream id is that of `rendition`: "<prefix><name>", alone or after a '/'.
    static bool matches(const std::string& id, const std::string& prefix,
                        const MediaSelectionOption::Rendition& rendition);
};

}  // namespace zarvo
