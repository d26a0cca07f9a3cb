#include <gtest/gtest.h>

#include "zarvo/platform/FatalError.h"
#include "zarvo/player/ZMPlaybackStatus.h"
#include "zarvo/player/ZMPlayerStatus.h"

namespace zarvo {
namespace {

TEST(ZMPlayerStatusTest, PlatformStatusesMapToTheirCasesAndEverythingElseToUnknown) {
    EXPECT_EQ(toZMPlayerStatus(Player::Status::readyToPlay), ZMPlayerStatus::readyToPlay);
    EXPECT_EQ(toZMPlayerStatus(Player::Status::failed), ZMPlayerStatus::failed);
    EXPECT_EQ(toZMPlayerStatus(static_cast<Player::Status>(7)), ZMPlayerStatus::unknown);
    EXPECT_EQ(toZMPlayerStatus(PlayerItem::Status::failed), ZMPlayerStatus::failed);
    EXPECT_EQ(toZMPlayerStatus(PlayerItem::Status::unknown), ZMPlayerStatus::unknown);
    EXPECT_EQ(toZMPlayerStatus(static_cast<const PlayerItem*>(nullptr)), ZMPlayerStatus::unknown);

    EXPECT_EQ(toZMPlaybackStatus(Player::TimeControlStatus::waitingToPlayAtSpecifiedRate),
              ZMPlaybackStatus::waiting);
    EXPECT_EQ(toZMPlaybackStatus(Player::TimeControlStatus::playing), ZMPlaybackStatus::playing);
    ScopedFatalErrorHandler throwing;
    EXPECT_THROW(toZMPlaybackStatus(static_cast<Player::TimeControlStatus>(3)),
                 FatalErrorException);
}

}  // namespace
}  // namespace zarvo
