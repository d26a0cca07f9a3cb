#include "zarvo/media/model/MediaSelectionOption.h"

namespace zarvo {

std::string MediaSelectionOption::mediaTypeCode() const {
    switch (rendition_.mediaType) {
        case MediaType::audio:
            return "soun";
        case MediaType::video:
            return "vide";
        case MediaType::subtitle:
            return "sbtl";
        case MediaType::closedCaption:
            return "clcp";
    }
    return "soun";
}

bool MediaSelectionOption::hasMediaCharacteristic(const MediaCharacteristic& characteristic) const {
    switch (rendition_.mediaType) {
        case MediaType::audio:
            return characteristic == MediaCharacteristic::audible();
        case MediaType::video:
            return characteristic == MediaCharacteristic::visual();
        case MediaType::subtitle:
        case MediaType::closedCaption:
            return characteristic == MediaCharacteristic::legible();
    }
    return false;
}

}  // namespace zarvo
