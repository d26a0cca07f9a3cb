// The smallest host of the SDK: plays one HLS address and prints what the player reports,
// until the stream ends, fails, or the time given with --for has passed. The SDK delivers
// every call on GLib's default main context, which this program runs.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <zarvo/player/ZMPlayer.h>
#include <zarvo/player/ZMPlayerDelegate.h>
#include <zarvo/source/ZMPlaybackSource.h>

#include <glib.h>

using namespace zarvo;

class PrintingDelegate final : public ZMPlayerDelegate {
public:
    explicit PrintingDelegate(GMainLoop* loop) : loop_(loop) {}
    bool failed = false;

    void playerCurrentTime(ZMPlayer&, double time, double duration) override {
        std::printf("time %.1f of %.1f\n", time, duration);
        if (duration > 0 && time >= duration - 0.5) {
            g_main_loop_quit(loop_);  // the end of a VOD
        }
    }
    void playerDidChangePlayerStatus(ZMPlayer&, ZMPlayerStatus status) override {
        std::printf("player status %d\n", static_cast<int>(status));
    }
    void playerPlayedItemDidChange(ZMPlayer&, ZMPlayerStatus status) override {
        std::printf("item status %d\n", static_cast<int>(status));
    }
    void playerDidChangePlaybackStatus(ZMPlayer&, ZMPlaybackStatus status) override {
        static const char* names[] = {"paused", "waiting", "playing"};
        std::printf("playback %s\n", names[static_cast<int>(status) % 3]);
    }
    void playerDidChangeIndicatedBitrate(ZMPlayer&, double bitrate) override {
        std::printf("bitrate %.0f kbit/s\n", bitrate);
    }
    void playerDidOccurError(ZMPlayer&, const Error& error) override {
        std::printf("error %s %ld: %s\n", error.domain().c_str(), error.code(),
                    error.localizedDescription().c_str());
        failed = true;
        g_main_loop_quit(loop_);
    }
    void playerDidOccurEvents(ZMPlayer&,
                              const std::vector<ZMPlayerMetadataEvent>& events) override {
        std::printf("%zu metadata events\n", events.size());
    }
    std::optional<std::vector<ZMMediaOption>> playerMapMediaOptions(
        ZMPlayer&, const std::vector<MediaSelectionOption>&, const MediaCharacteristic&) override {
        return std::nullopt;  // the SDK's own option lists
    }
    std::vector<TextStyleRule> playerInternalSubtitlesTextStyleRules(ZMPlayer&) override {
        return {};
    }
    void playerDidOccurAccessLogEvents(ZMPlayer&,
                                       const std::vector<PlayerItemAccessLogEvent>&) override {}

private:
    GMainLoop* loop_;
};

int main(int argc, char** argv) {
    if (argc != 2 && !(argc == 4 && std::string(argv[2]) == "--for")) {
        std::fprintf(stderr, "usage: %s URL [--for SECONDS]\n", argv[0]);
        return 2;
    }
    const auto url = Url::parse(argv[1]);
    if (!url) {
        std::fprintf(stderr, "not a URL: %s\n", argv[1]);
        return 2;
    }
    std::printf("ZarvoMediaPlayer %s\n", ZMPlayer::version().c_str());
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    if (argc == 4) {
        g_timeout_add_seconds(
            static_cast<guint>(std::atoi(argv[3])),
            [](gpointer loop) {
                g_main_loop_quit(static_cast<GMainLoop*>(loop));
                return G_SOURCE_REMOVE;
            },
            loop);
    }
    auto delegate = std::make_shared<PrintingDelegate>(loop);  // the player holds it weakly
    auto player = ZMPlayer::make();
    player->setDelegate(delegate);
    player->open(std::make_shared<ZMPlaybackSource>(*url, ZMPlaybackSourceOptions(false)), true);
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
    return delegate->failed ? 1 : 0;
}
