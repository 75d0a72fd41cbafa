#pragma once

#include "Rotavox.h"
#include "TimedEventQueue.h"

namespace android {


// An event of the player's queue that calls one member of the player when
// it fires.  The player makes two kinds: the status watchdog (made once) and
// the asynchronous prepare (made anew for each preparation).
struct RotavoxEvent : public TimedEventQueue::Event {
    RotavoxEvent(Rotavox* player, void (Rotavox::*method)())
        : mPlayer(player), mMethod(method) {}

protected:
    virtual ~RotavoxEvent() {}

    virtual void fire(TimedEventQueue* /* queue */, int64_t /* nowUs */) {
        (mPlayer->*mMethod)();
    }

private:
    Rotavox* mPlayer;
    void (Rotavox::*mMethod)();

    RotavoxEvent(const RotavoxEvent&) = delete;
    RotavoxEvent& operator=(const RotavoxEvent&) = delete;
};

}  // namespace android
