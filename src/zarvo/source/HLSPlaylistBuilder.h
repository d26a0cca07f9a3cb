#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zarvo {

// Collects playlist lines.
class HLSPlaylistBuilder {
public:
    std::vector<std::string> lines;

    void addLine(std::string line) { lines.push_back(std::move(line)); }

    // Adds a subtitle rendition that is never selected automatically, by default or as forced:
    // #EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID="<group>",LANGUAGE="<language>",NAME="<name>",
    // AUTOSELECT=NO,DEFAULT=NO,FORCED=NO,URI="<uri>" (one line).
    void addSubtitlesRendition(std::string_view groupId, std::string_view language,
                               std::string_view name, std::string_view uri);
};

}  // namespace zarvo
