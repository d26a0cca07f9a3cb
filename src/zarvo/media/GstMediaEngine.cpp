#include "zarvo/media/GstMediaEngine.h"

#include "zarvo/media/AssetLoader.h"
#include "zarvo/media/GstPlayerEngine.h"
#include "zarvo/media/UrlAsset.h"

namespace zarvo {

std::unique_ptr<PlayerEngine> GstMediaEngine::makePlayerEngine(
    const std::shared_ptr<Player>& player) {
    return std::make_unique<GstPlayerEngine>(player, key());
}

void GstMediaEngine::loadAsset(const std::shared_ptr<UrlAsset>& asset) {
    asset->setEngineState(key(), AssetLoader::start(asset, key()));
}

}  // namespace zarvo
