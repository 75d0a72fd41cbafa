/*
 * Host build of the platform's HTTP service handle.  The host plays local
 * files only; callers pass a null service.
 */

#ifndef ANDROID_MEDIA_HTTP_SERVICE_H_
#define ANDROID_MEDIA_HTTP_SERVICE_H_

#include <utils/RefBase.h>

namespace android {

struct MediaHTTPService : public RefBase {
    MediaHTTPService() {}

protected:
    virtual ~MediaHTTPService() {}

private:
    MediaHTTPService(const MediaHTTPService&) = delete;
    MediaHTTPService& operator=(const MediaHTTPService&) = delete;
};

}  // namespace android

#endif  // ANDROID_MEDIA_HTTP_SERVICE_H_
