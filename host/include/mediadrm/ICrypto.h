/*
 * Host build of the platform's crypto plug-in handle.  The host decodes clear
 * content only; MediaCodec::configure takes one and callers pass null.
 */

#ifndef ANDROID_ICRYPTO_H_
#define ANDROID_ICRYPTO_H_

#include <utils/RefBase.h>

namespace android {

struct ICrypto : public RefBase {
    ICrypto() {}

protected:
    virtual ~ICrypto() {}

private:
    ICrypto(const ICrypto&) = delete;
    ICrypto& operator=(const ICrypto&) = delete;
};

}  // namespace android

#endif  // ANDROID_ICRYPTO_H_
