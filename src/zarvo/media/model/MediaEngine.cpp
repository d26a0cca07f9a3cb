#include "zarvo/media/model/MediaEngine.h"

#include <mutex>

#include "zarvo/platform/Immortal.h"

namespace zarvo {
namespace {

struct CurrentEngine {
    std::mutex mutex;
    std::shared_ptr<MediaEngine> engine;
};

CurrentEngine& currentEngine() {
    static Immortal<CurrentEngine> current;
    return current.get();
}

}  // namespace

std::shared_ptr<MediaEngine> MediaEngine::current() {
    auto& current = currentEngine();
    std::lock_guard lock(current.mutex);
    return current.engine ? current.engine : standard();
}

void MediaEngine::setCurrent(std::shared_ptr<MediaEngine> engine) {
    auto& current = currentEngine();
    std::lock_guard lock(current.mutex);
    current.engine = std::move(engine);
}

ScopedMediaEngine::ScopedMediaEngine(std::shared_ptr<MediaEngine> engine) {
    auto& current = currentEngine();
    std::lock_guard lock(current.mutex);
    previous_ = std::exchange(current.engine, std::move(engine));
}

ScopedMediaEngine::~ScopedMediaEngine() {
    MediaEngine::setCurrent(std::move(previous_));
}

}  // namespace zarvo
