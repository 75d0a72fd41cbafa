/*
 * The base class of the platform's media players, for a host process.
 *
 * The notification part (Listener, setNotifyCallback, sendEvent) is the
 * platform's.  The rest is kept small on purpose: where the platform declares
 * pure virtual operations (data source, prepare, start, ...), this class
 * gives default implementations that return INVALID_OPERATION, so a tool or
 * a test can subclass it cheaply just to observe the messages a player sends.
 */

#ifndef ANDROID_MEDIAPLAYERINTERFACE_H
#define ANDROID_MEDIAPLAYERINTERFACE_H

#include <stdint.h>
#include <sys/types.h>

#include <media/mediaplayer.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

namespace android {

class Parcel;

class MediaPlayerBase : public RefBase {
public:
    // Receives the player's messages (media_event_type codes).
    class Listener : public RefBase {
    public:
        virtual void notify(int msg, int ext1, int ext2, const Parcel* obj) = 0;
        virtual ~Listener() {}
    };

    MediaPlayerBase() {}
    virtual ~MediaPlayerBase() {}

    virtual status_t initCheck() { return INVALID_OPERATION; }
    virtual bool hardwareOutput() { return false; }
    virtual status_t setDataSource(int /*fd*/, int64_t /*offset*/, int64_t /*length*/) {
        return INVALID_OPERATION;
    }
    virtual status_t prepare() { return INVALID_OPERATION; }
    virtual status_t prepareAsync() { return INVALID_OPERATION; }
    virtual status_t start() { return INVALID_OPERATION; }
    virtual status_t stop() { return INVALID_OPERATION; }
    virtual status_t pause() { return INVALID_OPERATION; }
    virtual bool isPlaying() { return false; }
    virtual status_t seekTo(int /*msec*/) { return INVALID_OPERATION; }
    virtual status_t getCurrentPosition(int* /*msec*/) { return INVALID_OPERATION; }
    virtual status_t getDuration(int* /*msec*/) { return INVALID_OPERATION; }
    virtual status_t reset() { return INVALID_OPERATION; }

    void setNotifyCallback(const sp<Listener>& listener) {
        Mutex::Autolock autoLock(mNotifyLock);
        mListener = listener;
    }

    // The listener is called without mNotifyLock held, so it may call back
    // into the player or replace itself.
    void sendEvent(int msg, int ext1 = 0, int ext2 = 0, const Parcel* obj = NULL) {
        sp<Listener> listener;
        {
            Mutex::Autolock autoLock(mNotifyLock);
            listener = mListener;
        }
        if (listener != NULL) {
            listener->notify(msg, ext1, ext2, obj);
        }
    }

private:
    Mutex mNotifyLock;
    sp<Listener> mListener GUARDED_BY(mNotifyLock);
};

}  // namespace android

#endif  // ANDROID_MEDIAPLAYERINTERFACE_H
