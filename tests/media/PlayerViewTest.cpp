// Player layers in views under a virtual X server: the picture of the origin's VOD in several
// windows of one player, each with its gravity, and black once a layer has no player.
#include <gtest/gtest.h>

#include "zarvo/media/model/Player.h"
#include "zarvo/media/model/PlayerItem.h"
#include "zarvo/media/model/PlayerLayer.h"
#include "zarvo/platform/RunLoop.h"
#include "zarvo/platform/View.h"

#include "support/SampleOriginTest.h"
#include "support/XvfbDisplay.h"

namespace zarvo {
namespace {

using namespace std::chrono_literals;
using test::WindowGrab;

// A view whose layer is a player layer.
class VideoView : public View {
public:
    explicit VideoView(Token token) : View(token) {}
    std::shared_ptr<PlayerLayer> playerLayer() const {
        return std::static_pointer_cast<PlayerLayer>(layer());
    }

protected:
    std::shared_ptr<Layer> makeLayer() override { return std::make_shared<PlayerLayer>(); }
};

class PlayerViewTest : public test::SampleOriginTest {
protected:
    void SetUp() override {
        if (!display_.name()) {
            GTEST_SKIP() << "Xvfb is not installed";
        }
    }

    // A view with a player layer in the host's window, black where no picture is.
    static std::shared_ptr<VideoView> videoView(const View& host, const Rect& frame) {
        auto view = View::make<VideoView>(frame, host.nativeWindow());
        view->setBackgroundColor(Color::black());
        return view;
    }

    // Waits until the window's grab satisfies `check`; the last grab explains a failure.
    ::testing::AssertionResult shows(const View& view, const char* what,
                                     const std::function<bool(const WindowGrab&)>& check) {
        std::optional<WindowGrab> grab;
        const bool done = RunLoop::main().runUntil(
            [&] {
                grab = WindowGrab::of(*view.nativeWindow());
                return grab && check(*grab);
            },
            10s);
        if (done) {
            return ::testing::AssertionSuccess();
        }
        auto failure = ::testing::AssertionFailure() << "the window never showed " << what;
        if (grab) {
            const auto centre = grab->at(grab->width() / 2, grab->height() / 2);
            int first = -1;
            int last = -1;
            for (int x = 0; x < grab->width(); ++x) {
                if (!grab->columnIsBlack(x)) {
                    first = first < 0 ? x : first;
                    last = x;
                }
            }
            failure << " [picture in columns " << first << ".." << last << " of " << grab->width()
                    << "]";
            failure << " (centre " << centre.red << "," << centre.green << "," << centre.blue
                    << ", left column " << (grab->columnIsBlack(2) ? "black" : "not black") << ")";
        }
        return failure;
    }

    test::XvfbDisplay display_;
};

bool pictureInCentre(const WindowGrab& grab) {
    return !grab.at(grab.width() / 2, grab.height() / 2).isBlack();
}

// The 16:9 picture in a 320 by 90 window: 160 wide in the middle, with black bars beside it.
bool betweenBars(const WindowGrab& grab) {
    return pictureInCentre(grab) && grab.columnIsBlack(40) && grab.columnIsBlack(280) &&
           !grab.columnIsBlack(90) && !grab.columnIsBlack(230);
}

bool toTheSides(const WindowGrab& grab) {
    return !grab.columnIsBlack(1) && !grab.columnIsBlack(grab.width() - 2);
}

TEST_F(PlayerViewTest, WindowsOfOnePlayerShowItsPictureWithTheirGravityAndBlackWithoutIt) {
    // The host's window, with three views in it, each wider than the 16:9 picture.
    auto host = View::make(Rect{0, 0, 800, 600});
    ASSERT_TRUE(host->nativeWindow());
    auto aspect = videoView(*host, Rect{0, 0, 320, 90});
    auto fill = videoView(*host, Rect{0, 100, 320, 90});
    auto stretch = videoView(*host, Rect{0, 200, 320, 90});
    fill->playerLayer()->setVideoGravity(LayerVideoGravity::resizeAspectFill);
    stretch->playerLayer()->setVideoGravity(LayerVideoGravity::resize);
    EXPECT_TRUE(shows(*aspect, "black before a player", [](const WindowGrab& grab) {
        return !pictureInCentre(grab) && grab.columnIsBlack(grab.width() - 1);
    }));

    auto player = Player::make();
    for (const auto& view : {aspect, fill, stretch}) {
        view->playerLayer()->setPlayer(player);
    }
    player->replaceCurrentItem(
        PlayerItem::make(UrlAsset::make(*Url::parse(origin_->url("/vod/master.m3u8")))));
    player->play();

    EXPECT_TRUE(shows(*aspect, "the picture between bars", betweenBars));
    for (const auto& view : {fill, stretch}) {
        EXPECT_TRUE(shows(*view, "the picture to the edges", [](const WindowGrab& grab) {
            return !grab.columnIsBlack(1) && !grab.columnIsBlack(grab.width() - 2) &&
                   !grab.rowIsBlack(1) && !grab.rowIsBlack(grab.height() - 2);
        }));
    }

    // A new gravity takes effect at once, and a bigger view gets a bigger picture.
    aspect->playerLayer()->setVideoGravity(LayerVideoGravity::resize);
    EXPECT_TRUE(shows(*aspect, "the stretched picture", toTheSides));
    stretch->setFrame(Rect{0, 300, 480, 270});
    EXPECT_TRUE(shows(*stretch, "the picture at its new size", [](const WindowGrab& grab) {
        return grab.width() == 480 && !grab.columnIsBlack(470) && !grab.rowIsBlack(265);
    }));

    // Without a player the window is black again, even when it leaves a paused player whose
    // windows hold their pictures; the other windows go on showing the video.
    player->pause();
    fill->playerLayer()->setPlayer(nullptr);
    EXPECT_TRUE(shows(*fill, "black without a player", [](const WindowGrab& grab) {
        return !pictureInCentre(grab) && grab.columnIsBlack(1) && grab.rowIsBlack(45);
    }));
    stretch.reset();
    player->play();
    const double before = player->currentTime().seconds();
    EXPECT_TRUE(RunLoop::main().runUntil(
        [&] { return player->currentTime().seconds() > before + 0.5; }, 10s))
        << "playback goes on when a view goes";

    // The next item plays in the same windows (the sinks forget them when the pipeline stops).
    player->replaceCurrentItem(
        PlayerItem::make(UrlAsset::make(*Url::parse(origin_->url("/vod/master.m3u8")))));
    player->play();
    EXPECT_TRUE(shows(*aspect, "the next item's picture", toTheSides));
}

// The first window reaches a player that has been playing without one: it shows the picture
// from then on, and playback goes on at its pace.
TEST_F(PlayerViewTest, AViewGivenToAPlayingPlayerShowsItsPictureFromThenOn) {
    auto host = View::make(Rect{0, 0, 400, 300});
    ASSERT_TRUE(host->nativeWindow());
    auto view = videoView(*host, Rect{0, 0, 320, 180});
    auto player = Player::make();
    player->replaceCurrentItem(
        PlayerItem::make(UrlAsset::make(*Url::parse(origin_->url("/vod/master.m3u8")))));
    player->play();
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return player->currentTime().seconds() > 1; }, 20s));

    view->playerLayer()->setPlayer(player);
    EXPECT_TRUE(shows(*view, "the picture", [](const WindowGrab& grab) {
        return pictureInCentre(grab) && !grab.columnIsBlack(1);
    }));
    const double before = player->currentTime().seconds();
    EXPECT_TRUE(RunLoop::main().runUntil(
        [&] { return player->currentTime().seconds() > before + 1; }, 10s));
}

// A paused item shows its first picture with its window's gravity, in a window given to it
// while paused too, and a new gravity at once: no later picture comes to carry it.
TEST_F(PlayerViewTest, APausedPlayerShowsItsPictureInNewWindowsAndWithNewGravities) {
    auto host = View::make(Rect{0, 0, 400, 300});
    ASSERT_TRUE(host->nativeWindow());
    auto first = videoView(*host, Rect{0, 0, 320, 90});
    auto second = videoView(*host, Rect{0, 100, 320, 90});
    auto player = Player::make();
    first->playerLayer()->setPlayer(player);
    player->replaceCurrentItem(
        PlayerItem::make(UrlAsset::make(*Url::parse(origin_->url("/vod/master.m3u8")))));
    EXPECT_TRUE(shows(*first, "the first picture between bars", betweenBars));

    second->playerLayer()->setVideoGravity(LayerVideoGravity::resize);
    second->playerLayer()->setPlayer(player);
    EXPECT_TRUE(shows(*second, "the paused picture in a new window", toTheSides));
    first->playerLayer()->setVideoGravity(LayerVideoGravity::resize);
    EXPECT_TRUE(shows(*first, "the paused picture stretched", toTheSides));
    second->playerLayer()->setVideoGravity(LayerVideoGravity::resizeAspect);
    EXPECT_TRUE(shows(*second, "the paused picture between bars", betweenBars));
    EXPECT_EQ(player->currentTime().seconds(), 0);
}

}  // namespace
}  // namespace zarvo
