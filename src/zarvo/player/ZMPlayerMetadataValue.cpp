#include "zarvo/player/ZMPlayerMetadataValue.h"

namespace zarvo {

void from_json(const Json& json, ZMPlayerMetadataValue& value) {
    json.at("vast").get_to(value.vast);
}

}  // namespace zarvo
