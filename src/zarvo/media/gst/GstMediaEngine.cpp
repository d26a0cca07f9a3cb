#include "zarvo/media/gst/GstMediaEngine.h"

#include "zarvo/media/gst/GstPlayerEngine.h"
#include "zarvo/media/loopback/AssetLoader.h"
#include "zarvo/media/model/UrlAsset.h"
#include "zarvo/platform/Immortal.h"

namespace zarvo {

std::shared_ptr<MediaEngine> MediaEngine::standard() {
    static Immortal<std::shared_ptr<MediaEngine>> engine(std::make_shared<GstMediaEngine>());
    return engine.get();
}

std::unique_ptr<PlayerEngine> GstMediaEngine::makePlayerEngine(
    const std::shared_ptr<Player>& player) {
    return std::make_unique<GstPlayerEngine>(player, key());
}

void GstMediaEngine::loadAsset(const std::shared_ptr<UrlAsset>& asset) {
    asset->setEngineState(key(), AssetLoader::start(asset, key()));
}

}  // namespace zarvo
