// A source of media buffers (an extractor track, a decoder, a filter).
// Mirrors the platform's MediaSource with its ReadOptions.

#ifndef MEDIA_SOURCE_H_
#define MEDIA_SOURCE_H_

#include <stdint.h>
#include <sys/types.h>

#include <media/MediaTrack.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/MetaData.h>
#include <utils/RefBase.h>

namespace android {

class MediaBufferBase;

struct MediaSource : public virtual RefBase {
    MediaSource();

    // Must come before every other call except getFormat().
    virtual status_t start(MetaData* params = NULL) = 0;

    // A read blocked in another thread returns NO_INIT.  Callers release
    // every buffer they got from read() before they call stop().
    virtual status_t stop() = 0;

    // Format of the buffers that read() hands out.
    virtual sp<MetaData> getFormat() = 0;

    typedef MediaTrack::ReadOptions ReadOptions;

    // Blocks until a buffer, an error or the end of the stream
    // (ERROR_END_OF_STREAM).  On OK the caller owns one reference to
    // |*buffer| and release()s it.  INFO_FORMAT_CHANGED: getFormat() changed
    // and later buffers follow the new format.
    virtual status_t read(MediaBufferBase** buffer, const ReadOptions* options = NULL) = 0;

    // Asks the source to stop pulling from upstream until the next read.
    virtual status_t pause() { return ERROR_UNSUPPORTED; }

    // Asks the source to drop buffers at or after |stopTimeUs| (-1 cancels).
    virtual status_t setStopTimeUs(int64_t /* stopTimeUs */) { return ERROR_UNSUPPORTED; }

protected:
    virtual ~MediaSource();

private:
    MediaSource(const MediaSource&);
    MediaSource& operator=(const MediaSource&);
};

}  // namespace android

#endif  // MEDIA_SOURCE_H_
