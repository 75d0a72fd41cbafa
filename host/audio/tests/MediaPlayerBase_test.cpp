// MediaPlayerBase's notification path: the listener hears every event, and
// is called without the notify lock held, so it may re-enter the player.

#include <array>
#include <vector>

#include <gtest/gtest.h>

#include <media/MediaPlayerInterface.h>

namespace android {
namespace {

class Player : public MediaPlayerBase {};

class Recorder : public MediaPlayerBase::Listener {
public:
    explicit Recorder(MediaPlayerBase* player) : mPlayer(player) {}
    void notify(int msg, int ext1, int ext2, const Parcel* obj) override {
        mEvents.push_back({msg, ext1, ext2});
        EXPECT_EQ(nullptr, obj);
        // Re-entering the player from the listener must not deadlock.
        if (mPlayer != nullptr && msg == MEDIA_STARTED) {
            mPlayer->setNotifyCallback(nullptr);
            mPlayer->sendEvent(MEDIA_PAUSED);
        }
    }
    std::vector<std::array<int, 3>> mEvents;
    MediaPlayerBase* mPlayer;
};

TEST(MediaPlayerBase, ListenerHearsEventsAndMayReenter) {
    sp<Player> player = new Player;
    player->sendEvent(MEDIA_PREPARED);  // nobody listening: dropped
    sp<Recorder> recorder = new Recorder(player.get());
    player->setNotifyCallback(recorder);
    player->sendEvent(MEDIA_PREPARED);
    player->sendEvent(MEDIA_ERROR, MEDIA_ERROR_UNKNOWN, -19);
    player->sendEvent(MEDIA_STARTED);  // the listener unhooks itself here
    player->sendEvent(MEDIA_STOPPED);
    ASSERT_EQ(3u, recorder->mEvents.size());
    EXPECT_EQ((std::array<int, 3>{1, 0, 0}), recorder->mEvents[0]);
    EXPECT_EQ((std::array<int, 3>{100, 1, -19}), recorder->mEvents[1]);
    EXPECT_EQ((std::array<int, 3>{6, 0, 0}), recorder->mEvents[2]);
}

}  // namespace
}  // namespace android
