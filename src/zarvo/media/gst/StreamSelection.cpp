#include "zarvo/media/gst/StreamSelection.h"

#include <algorithm>

#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/media/model/UrlAsset.h"

namespace zarvo {

bool StreamSelection::matches(const std::string& id, const std::string& prefix,
                              const MediaSelectionOption::Rendition& rendition) {
    const std::string wanted = prefix + rendition.name;
    if (id == wanted) {
        return true;
    }
    return id.size() > wanted.size() &&
           id.compare(id.size() - wanted.size(), wanted.size(), wanted) == 0 &&
           id[id.size() - wanted.size() - 1] == '/';
}

std::vector<std::string> StreamSelection::choose(const std::vector<Stream>& collection,
                                                 const Wanted& wanted,
                                                 const std::vector<std::string>& before) {
    std::vector<std::string> chosen;
    const Stream* firstAudio = nullptr;
    const Stream* audio = nullptr;
    const Stream* firstText = nullptr;
    const Stream* text = nullptr;
    const Stream* previousText = nullptr;
    for (const auto& stream : collection) {
        switch (stream.type) {
            case Type::video:
                chosen.push_back(stream.id);
                break;
            case Type::audio:
                firstAudio = firstAudio ? firstAudio : &stream;
                if (wanted.audio && !audio && matches(stream.id, "audio-", *wanted.audio)) {
                    audio = &stream;
                }
                break;
            case Type::text:
                firstText = firstText ? firstText : &stream;
                if (wanted.text && !text && matches(stream.id, "text-", *wanted.text)) {
                    text = &stream;
                }
                if (std::find(before.begin(), before.end(), stream.id) != before.end()) {
                    previousText = &stream;
                }
                break;
            case Type::other:
                break;
        }
    }
    if (const Stream* pick = audio ? audio : firstAudio) {
        chosen.push_back(pick->id);
    }
    if (const Stream* pick = text ? text : previousText ? previousText : firstText) {
        chosen.push_back(pick->id);
    }
    return chosen;
}

StreamSelection::Wanted StreamSelection::wantedBy(const PlayerItem& item) {
    Wanted wanted;
    const auto& asset = *item.asset();
    const MediaSelection selection = item.currentMediaSelection();
    if (auto group = asset.mediaSelectionGroup(MediaCharacteristic::audible())) {
        if (auto option = selection.selectedMediaOption(*group)) {
            wanted.audio = option->rendition();
        }
    }
    if (auto group = asset.mediaSelectionGroup(MediaCharacteristic::legible())) {
        if (auto option = selection.selectedMediaOption(*group)) {
            wanted.text = option->rendition();
        }
    }
    return wanted;
}

}  // namespace zarvo
