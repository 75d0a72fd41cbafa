// Process-wide registry of handlers: which looper serves which handler id.
// Private to host_foundation.

#ifndef A_LOOPER_ROSTER_H_

#define A_LOOPER_ROSTER_H_

#include <media/stagefright/foundation/ALooper.h>
#include <utils/KeyedVector.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

namespace android {

struct ALooperRoster {
    ALooperRoster();

    ALooper::handler_id registerHandler(
            const sp<ALooper> &looper, const sp<AHandler> &handler);

    void unregisterHandler(ALooper::handler_id handlerID);
    void unregisterStaleHandlers();

    // The id and looper a handler is registered with (0 and none when it is
    // not), read under the roster's lock so that it never races a
    // registration on another thread.
    void getTarget(const AHandler *handler, ALooper::handler_id *id, wp<ALooper> *looper);

    // Whether |id| still names |handler|: an unregistered handler receives
    // nothing more, even from messages addressed before it left.
    bool isRegistered(ALooper::handler_id id, const AHandler *handler);

    // The one roster of the process; never destroyed, since looper threads
    // may still use it while static destructors run.
    static ALooperRoster &get();

private:
    struct HandlerInfo {
        wp<ALooper> mLooper;
        wp<AHandler> mHandler;
        const AHandler *mRawHandler;
    };

    // also guards the id/looper fields of every registered AHandler
    Mutex mLock;
    KeyedVector<ALooper::handler_id, HandlerInfo> mHandlers GUARDED_BY(mLock);
    ALooper::handler_id mNextHandlerID GUARDED_BY(mLock);

    DISALLOW_EVIL_CONSTRUCTORS(ALooperRoster);
};

}  // namespace android

#endif  // A_LOOPER_ROSTER_H_
