/*
 * Host build of the platform's Surface: audio-only hosts never render video,
 * so the class carries nothing.  MediaCodec::configure takes one; callers
 * pass null.
 */

#ifndef ANDROID_GUI_SURFACE_H
#define ANDROID_GUI_SURFACE_H

#include <utils/RefBase.h>

namespace android {

class Surface : public RefBase {
public:
    Surface() {}

protected:
    virtual ~Surface() {}

private:
    Surface(const Surface&) = delete;
    Surface& operator=(const Surface&) = delete;
};

}  // namespace android

#endif  // ANDROID_GUI_SURFACE_H
