#include "zarvo/offline/DownloadQualityJson.h"

namespace zarvo {
namespace {

template <class Json>
void write(Json& json, const ZMDownloadQuality& quality) {
    json = Json::object();
    json["width"] = quality.width;
    json["height"] = quality.height;
    json["bitrate"] = quality.bitrate;
    json["size"] = quality.size;
    json["sizeWithBasicAudio"] = quality.sizeWithBasicAudio;
}

}  // namespace

void to_json(nlohmann::json& json, const ZMDownloadQuality& quality) {
    write(json, quality);
}

void to_json(nlohmann::ordered_json& json, const ZMDownloadQuality& quality) {
    write(json, quality);
}

void from_json(const nlohmann::json& json, ZMDownloadQuality& quality) {
    json.at("width").get_to(quality.width);
    json.at("height").get_to(quality.height);
    json.at("bitrate").get_to(quality.bitrate);
    json.at("size").get_to(quality.size);
    json.at("sizeWithBasicAudio").get_to(quality.sizeWithBasicAudio);
}

}  // namespace zarvo
