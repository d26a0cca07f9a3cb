#include "zarvo/media/gst/GstPlayerEngine.h"

#include "zarvo/media/gst/GstPipelineSinks.h"
#include "zarvo/media/gst/GstPlayback.h"

namespace zarvo {

GstPlayerEngine::GstPlayerEngine(const std::shared_ptr<Player>& player, const MediaEngineKey& key)
    : playback_(GstPlayback::make(player, key)) {
    GstPipelineSinks::prepare();
}

GstPlayerEngine::~GstPlayerEngine() {
    playback_->shutdown();
}

void GstPlayerEngine::setItem(const std::shared_ptr<PlayerItem>& item) {
    playback_->setItem(item);
}

void GstPlayerEngine::setRate(float rate) {
    playback_->setRate(rate);
}

void GstPlayerEngine::setMuted(bool muted) {
    playback_->setMuted(muted);
}

void GstPlayerEngine::setVolume(float volume) {
    playback_->setVolume(volume);
}

void GstPlayerEngine::seek(std::uint64_t id, MediaTime time, MediaTime toleranceBefore,
                           MediaTime toleranceAfter) {
    playback_->seek(id, time, toleranceBefore, toleranceAfter);
}

MediaTime GstPlayerEngine::currentTime() const {
    return playback_->currentTime();
}

std::optional<Date> GstPlayerEngine::currentDate() const {
    return playback_->currentDate();
}

void GstPlayerEngine::mediaSelectionChanged() {
    playback_->mediaSelectionChanged();
}

void GstPlayerEngine::variantPreferencesChanged() {
    playback_->variantPreferencesChanged();
}

std::optional<PlayerItemStatistics> GstPlayerEngine::statistics() const {
    return playback_->statistics();
}

void GstPlayerEngine::textStyleRulesChanged() {
    playback_->textStyleRulesChanged();
}

void GstPlayerEngine::setVideoOutput(std::uint64_t id, const std::optional<VideoOutput>& output) {
    playback_->setVideoOutput(id, output);
}

void GstPlayerEngine::redrawVideoOutput(std::uint64_t id) {
    playback_->redrawVideoOutput(id);
}

}  // namespace zarvo
