#define LOG_TAG "MediaSource"

#include <media/stagefright/MediaSource.h>

namespace android {

MediaSource::MediaSource() {}

MediaSource::~MediaSource() {}

MediaSource::ReadOptions::ReadOptions() {
    reset();
}

void MediaSource::ReadOptions::reset() {
    mOptions = 0;
    mSeekTimeUs = 0;
    mSeekMode = SEEK_CLOSEST_SYNC;
    mNonBlocking = false;
}

void MediaSource::ReadOptions::setSeekTo(int64_t time_us, SeekMode mode) {
    mOptions |= kSeekTo_Option;
    mSeekTimeUs = time_us;
    mSeekMode = mode;
}

void MediaSource::ReadOptions::clearSeekTo() {
    mOptions &= ~kSeekTo_Option;
    mSeekTimeUs = 0;
    mSeekMode = SEEK_CLOSEST_SYNC;
}

bool MediaSource::ReadOptions::getSeekTo(int64_t* time_us, SeekMode* mode) const {
    *time_us = mSeekTimeUs;
    *mode = mSeekMode;
    return (mOptions & kSeekTo_Option) != 0;
}

void MediaSource::ReadOptions::setNonBlocking() {
    mNonBlocking = true;
}

void MediaSource::ReadOptions::clearNonBlocking() {
    mNonBlocking = false;
}

bool MediaSource::ReadOptions::getNonBlocking() const {
    return mNonBlocking;
}

}  // namespace android
