#include "zarvo/player/ZMPlayerMetadataVast.h"

namespace zarvo {

void from_json(const Json& json, ZMPlayerMetadataVast& vast) {
    json.at("event").get_to(vast.event);
}

}  // namespace zarvo
