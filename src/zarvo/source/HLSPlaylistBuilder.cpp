#include "zarvo/source/HLSPlaylistBuilder.h"

namespace zarvo {

void HLSPlaylistBuilder::addSubtitlesRendition(std::string_view groupId, std::string_view language,
                                               std::string_view name, std::string_view uri) {
    std::string line = "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"";
    line.append(groupId).append("\",LANGUAGE=\"").append(language);
    line.append("\",NAME=\"").append(name);
    line.append("\",AUTOSELECT=NO,DEFAULT=NO,FORCED=NO,URI=\"").append(uri).append("\"");
    lines.push_back(std::move(line));
}

}  // namespace zarvo
