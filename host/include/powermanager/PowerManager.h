/*
 * Host stand-in for the platform's powermanager/PowerManager.h (API 29).
 */

#ifndef ANDROID_POWERMANAGER_H
#define ANDROID_POWERMANAGER_H

namespace android {

// Must be kept in sync with PowerManager.java.
enum {
    POWERMANAGER_PARTIAL_WAKE_LOCK = 1,  // equals PowerManager.PARTIAL_WAKE_LOCK
};

}  // namespace android

#endif  // ANDROID_POWERMANAGER_H
