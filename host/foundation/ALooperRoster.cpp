#define LOG_TAG "ALooperRoster"

#include "ALooperRoster.h"

#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/AHandler.h>

namespace android {

ALooperRoster::ALooperRoster()
    : mNextHandlerID(1) {
}

// static
ALooperRoster &ALooperRoster::get() {
    static ALooperRoster *roster = new ALooperRoster;
    return *roster;
}

ALooper::handler_id ALooperRoster::registerHandler(
        const sp<ALooper> &looper, const sp<AHandler> &handler) {
    Mutex::Autolock autoLock(mLock);

    if (handler->id() != 0) {
        CHECK(!"A handler must only be registered once.");
        return INVALID_OPERATION;
    }

    HandlerInfo info;
    info.mLooper = looper;
    info.mHandler = handler;
    info.mRawHandler = handler.get();
    ALooper::handler_id handlerID = mNextHandlerID++;
    mHandlers.add(handlerID, info);

    handler->setID(handlerID, looper);

    return handlerID;
}

void ALooperRoster::unregisterHandler(ALooper::handler_id handlerID) {
    Mutex::Autolock autoLock(mLock);

    ssize_t index = mHandlers.indexOfKey(handlerID);

    if (index < 0) {
        return;
    }

    const HandlerInfo &info = mHandlers.valueAt(index);

    sp<AHandler> handler = info.mHandler.promote();

    if (handler != NULL) {
        handler->setID(0, NULL);
    }

    mHandlers.removeItemsAt(index);
}

void ALooperRoster::unregisterStaleHandlers() {
    Vector<sp<ALooper> > activeLoopers;
    {
        Mutex::Autolock autoLock(mLock);

        for (size_t i = mHandlers.size(); i > 0;) {
            i--;
            const HandlerInfo &info = mHandlers.valueAt(i);

            sp<ALooper> looper = info.mLooper.promote();
            if (looper == NULL) {
                ALOGV("Unregistering stale handler %d", mHandlers.keyAt(i));
                mHandlers.removeItemsAt(i);
            } else {
                // At this point 'looper' might be the only sp<> keeping
                // the object alive. To prevent it from going out of scope
                // and having ~ALooper call this method again recursively
                // and then deadlocking because of the Autolock above, add
                // it to a Vector which will go out of scope after the lock
                // has been released.
                activeLoopers.add(looper);
            }
        }
    }
}

void ALooperRoster::getTarget(
        const AHandler *handler, ALooper::handler_id *id, wp<ALooper> *looper) {
    Mutex::Autolock autoLock(mLock);
    *id = handler->id();
    *looper = handler->getLooper();
}

bool ALooperRoster::isRegistered(ALooper::handler_id id, const AHandler *handler) {
    Mutex::Autolock autoLock(mLock);
    ssize_t index = mHandlers.indexOfKey(id);
    return index >= 0 && mHandlers.valueAt(index).mRawHandler == handler;
}

}  // namespace android
