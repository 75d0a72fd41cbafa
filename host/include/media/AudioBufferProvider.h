// Pull interface between a producer of PCM frames and a consumer such as a
// resampler: the consumer asks for up to frameCount frames and gives the
// buffer back when it is done with it.

#ifndef ANDROID_AUDIO_BUFFER_PROVIDER_H
#define ANDROID_AUDIO_BUFFER_PROVIDER_H

#include <stddef.h>
#include <stdint.h>

#include <utils/Errors.h>

namespace android {

class AudioBufferProvider {
public:
    // A frame is the samples of every channel at one instant.
    struct Buffer {
        Buffer() : raw(NULL), frameCount(0) {}
        union {
            void* raw;
            short* i16;
            int8_t* i8;
        };
        size_t frameCount;
    };

    virtual ~AudioBufferProvider() {}

    // On entry buffer->frameCount is the number of frames wanted.  On return
    // buffer->raw points at the frames and buffer->frameCount holds how many
    // there are, which may be fewer; on failure raw is NULL and frameCount 0.
    virtual status_t getNextBuffer(Buffer* buffer) = 0;

    // Gives back the buffer of the last getNextBuffer(); buffer->frameCount
    // says how many frames were consumed.  Afterwards raw is NULL and
    // frameCount 0.
    virtual void releaseBuffer(Buffer* buffer) = 0;
};

}  // namespace android

#endif  // ANDROID_AUDIO_BUFFER_PROVIDER_H
