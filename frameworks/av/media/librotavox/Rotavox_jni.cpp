//#define LOG_NDEBUG 0
#define LOG_TAG "RotavoxJNI"

#include <jni.h>
#include <sys/time.h>

#include <utils/Errors.h>
#include <utils/Log.h>
#include <utils/Mutex.h>

#include "Rotavox.h"

using namespace android;

// Serialises every read of mNativeData64 and its clearing in finalize; never
// held together with a player's lock.  A plain static object: its
// constructor runs from the library's static initialiser, before JNI_OnLoad,
// and its destructor at process exit.
static Mutex gLock;
static jclass gRotavoxClass = NULL;
static jfieldID gNativeDataField = NULL;

static Rotavox* getPlayer(JNIEnv* env, jobject thiz) {
    gLock.lock();
    jlong address = env->GetLongField(thiz, gNativeDataField);
    gLock.unlock();
    return reinterpret_cast<Rotavox*>(address);
}

static Rotavox* getPlayerOrLog(JNIEnv* env, jobject thiz) {
    Rotavox* player = getPlayer(env, thiz);
    if (player == NULL) {
        ALOGE("not init!");
    }
    return player;
}

static int64_t wallClockNowUs() {
    struct timeval tv;
    gettimeofday(&tv, NULL);
    return (int64_t)tv.tv_sec * 1000000 + tv.tv_usec;
}

static jint quarlex_Rotavox_setup(JNIEnv* env, jobject thiz) {
    if (getPlayer(env, thiz) != NULL) {
        return 0;
    }
    Rotavox* player = new Rotavox();
    env->SetLongField(thiz, gNativeDataField, reinterpret_cast<jlong>(player));
    return 0;
}

static void quarlex_Rotavox_finalize(JNIEnv* env, jobject thiz) {
    gLock.lock();
    Rotavox* player = reinterpret_cast<Rotavox*>(env->GetLongField(thiz, gNativeDataField));
    env->SetLongField(thiz, gNativeDataField, 0);
    gLock.unlock();
    // From here no other native call can fetch the player.
    delete player;
}

static jint quarlex_Rotavox_setDataSource(JNIEnv* env, jobject thiz, jstring path) {
    Rotavox* player = getPlayerOrLog(env, thiz);
    if (player == NULL) {
        return -1;
    }
    const char* chars = env->GetStringUTFChars(path, NULL);
    status_t err = player->setDataSource(chars);
    env->ReleaseStringUTFChars(path, chars);
    return err;
}

static jint quarlex_Rotavox_prepare(JNIEnv* env, jobject thiz) {
    Rotavox* player = getPlayerOrLog(env, thiz);
    return player == NULL ? -1 : player->prepare();
}

static jint quarlex_Rotavox_prepareAsync(JNIEnv* env, jobject thiz) {
    Rotavox* player = getPlayerOrLog(env, thiz);
    return player == NULL ? -1 : player->prepareAsync();
}

// Milliseconds in; nativeGetPosition answers in microseconds.
static jint quarlex_Rotavox_setPosition(JNIEnv* env, jobject thiz, jlong positionMs) {
    Rotavox* player = getPlayerOrLog(env, thiz);
    if (player == NULL) {
        return -1;
    }
    player->mLastCallTimeUs = wallClockNowUs();
    player->mLock.lock();
    status_t err = player->setPosition_l(positionMs < 0 ? 0 : positionMs);
    player->mLock.unlock();
    return err;
}

static jint quarlex_Rotavox_forward(JNIEnv* env, jobject thiz, jint permille) {
    Rotavox* player = getPlayerOrLog(env, thiz);
    return player == NULL ? -1 : player->forward(permille);
}

static jint quarlex_Rotavox_rewind(JNIEnv* env, jobject thiz, jint permille) {
    Rotavox* player = getPlayerOrLog(env, thiz);
    return player == NULL ? -1 : player->rewind(permille);
}

static jint quarlex_Rotavox_setPlaybackRatePermille(JNIEnv* env, jobject thiz, jint permille) {
    Rotavox* player = getPlayerOrLog(env, thiz);
    return player == NULL ? -1 : player->setPlaybackRatePermille(permille);
}

static void quarlex_Rotavox_reset(JNIEnv* env, jobject thiz) {
    Rotavox* player = getPlayerOrLog(env, thiz);
    if (player == NULL) {
        return;
    }
    player->mLock.lock();
    player->reset_l();
    player->mLock.unlock();
}

static jlong quarlex_Rotavox_getPosition(JNIEnv* env, jobject thiz) {
    Rotavox* player = getPlayerOrLog(env, thiz);
    if (player == NULL) {
        return -1;
    }
    return player->getPosition();
}

// OpenJDK declares JNINativeMethod with char* members.
#define JNI_METHOD(name, signature, fn) \
    { const_cast<char*>(name), const_cast<char*>(signature), reinterpret_cast<void*>(fn) }

static JNINativeMethod gMethods[] = {
        JNI_METHOD("nativeSetup", "()I", quarlex_Rotavox_setup),
        JNI_METHOD("nativeFinalize", "()V", quarlex_Rotavox_finalize),
        JNI_METHOD("nativeSetDataSource", "(Ljava/lang/String;)I", quarlex_Rotavox_setDataSource),
        JNI_METHOD("nativePrepare", "()I", quarlex_Rotavox_prepare),
        JNI_METHOD("nativePrepareAsync", "()I", quarlex_Rotavox_prepareAsync),
        JNI_METHOD("nativeSetPosition", "(J)I", quarlex_Rotavox_setPosition),
        JNI_METHOD("nativeForward", "(I)I", quarlex_Rotavox_forward),
        JNI_METHOD("nativeRewind", "(I)I", quarlex_Rotavox_rewind),
        JNI_METHOD("nativeSetPlaybackRatePermille", "(I)I", quarlex_Rotavox_setPlaybackRatePermille),
        JNI_METHOD("nativeReset", "()V", quarlex_Rotavox_reset),
        JNI_METHOD("nativeGetPosition", "()J", quarlex_Rotavox_getPosition),
};

extern "C" JNIEXPORT jint JNI_OnLoad(JavaVM* vm, void* /* reserved */) {
    JNIEnv* env = NULL;
    if (vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_4) != JNI_OK) {
        return -1;
    }

    jclass clazz = env->FindClass("com/quarlex/music/utils/Rotavox");
    if (clazz == NULL) {
        return -1;
    }

    if (env->RegisterNatives(clazz, gMethods, 11) < 0) {
        return -1;
    }

    // The two failures below deliberately keep the library loaded: the
    // methods stay registered.
    gRotavoxClass = static_cast<jclass>(env->NewGlobalRef(clazz));
    if (gRotavoxClass == NULL) {
        ALOGE("NewglobalRef failed!");
        return JNI_VERSION_1_4;
    }

    gNativeDataField = env->GetFieldID(clazz, "mNativeData64", "J");
    if (gNativeDataField == NULL) {
        ALOGE("Can't find mNativeData64");
        // A pending NoSuchFieldError would fail the load after all.
        env->ExceptionClear();
        return JNI_VERSION_1_4;
    }

    return JNI_VERSION_1_4;
}
