// The binding driven through a stub JNI: a function table that answers only
// the calls the binding makes, so that the runtime's refusals (no
// environment, no class, a failing registration, no global reference, no
// field) can be staged, and the log lines the binding writes can be read.
// The real JVM runs the same library in the Java tests; this covers what a
// healthy JVM never does.

#include <jni.h>

#include <gtest/gtest.h>

#include <android/log.h>
#include <utils/Errors.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <media/HostAudioSink.h>

#include "Fixtures.h"
#include "LogCapture.h"
#include "TestTime.h"

extern "C" jint JNI_OnLoad(JavaVM* vm, void* reserved);

namespace android {
namespace {

// What the stub runtime does and what it saw.  One at a time: the JNI
// tables are plain C structures without a context pointer.
struct StubRuntime {
    bool envAvailable = true;
    bool classFound = true;
    jint registerResult = 0;
    bool globalRefMade = true;
    bool fieldFound = true;

    std::vector<std::string> calls;
    std::vector<std::pair<std::string, std::string>> registered;
    int exceptionsCleared = 0;
};
StubRuntime* gRuntime = nullptr;

// The stand-ins for Java objects: the binding only ever passes them back.
struct FakeObject {
    jlong nativeData64 = 0;
};
struct FakeString {
    std::string utf;
};
char gClassToken, gGlobalToken, gFieldToken;

jclass FindClass(JNIEnv*, const char* name) {
    gRuntime->calls.push_back(std::string("FindClass ") + name);
    return gRuntime->classFound ? reinterpret_cast<jclass>(&gClassToken) : nullptr;
}
jint RegisterNatives(JNIEnv*, jclass, const JNINativeMethod* methods, jint count) {
    gRuntime->calls.push_back("RegisterNatives " + std::to_string(count));
    for (jint i = 0; i < count; ++i) {
        gRuntime->registered.emplace_back(methods[i].name, methods[i].signature);
    }
    return gRuntime->registerResult;
}
jobject NewGlobalRef(JNIEnv*, jobject) {
    gRuntime->calls.push_back("NewGlobalRef");
    return gRuntime->globalRefMade ? reinterpret_cast<jobject>(&gGlobalToken) : nullptr;
}
jfieldID GetFieldID(JNIEnv*, jclass, const char* name, const char* signature) {
    gRuntime->calls.push_back(std::string("GetFieldID ") + name + " " + signature);
    return gRuntime->fieldFound ? reinterpret_cast<jfieldID>(&gFieldToken) : nullptr;
}
void ExceptionClear(JNIEnv*) { ++gRuntime->exceptionsCleared; }
jlong GetLongField(JNIEnv*, jobject object, jfieldID field) {
    EXPECT_EQ(reinterpret_cast<jfieldID>(&gFieldToken), field);
    return reinterpret_cast<FakeObject*>(object)->nativeData64;
}
void SetLongField(JNIEnv*, jobject object, jfieldID field, jlong value) {
    EXPECT_EQ(reinterpret_cast<jfieldID>(&gFieldToken), field);
    reinterpret_cast<FakeObject*>(object)->nativeData64 = value;
}
const char* GetStringUTFChars(JNIEnv*, jstring string, jboolean*) {
    return reinterpret_cast<FakeString*>(string)->utf.c_str();
}
void ReleaseStringUTFChars(JNIEnv*, jstring, const char*) {}

JNINativeInterface_ gEnvTable;
JNIEnv gEnv;
jint GetEnv(JavaVM*, void** env, jint version) {
    gRuntime->calls.push_back("GetEnv " + std::to_string(version));
    if (!gRuntime->envAvailable) return JNI_EVERSION;
    *env = &gEnv;
    return JNI_OK;
}
JNIInvokeInterface_ gVmTable;
JavaVM gVm;

class RotavoxJniTest : public ::testing::Test {
protected:
    void SetUp() override {
        gEnvTable = JNINativeInterface_{};
        gEnvTable.FindClass = FindClass;
        gEnvTable.RegisterNatives = RegisterNatives;
        gEnvTable.NewGlobalRef = NewGlobalRef;
        gEnvTable.GetFieldID = GetFieldID;
        gEnvTable.ExceptionClear = ExceptionClear;
        gEnvTable.GetLongField = GetLongField;
        gEnvTable.SetLongField = SetLongField;
        gEnvTable.GetStringUTFChars = GetStringUTFChars;
        gEnvTable.ReleaseStringUTFChars = ReleaseStringUTFChars;
        gEnv.functions = &gEnvTable;
        gVmTable = JNIInvokeInterface_{};
        gVmTable.GetEnv = GetEnv;
        gVm.functions = &gVmTable;
        gRuntime = &mRuntime;
    }
    void TearDown() override { gRuntime = nullptr; }

    jint load() { return JNI_OnLoad(&gVm, nullptr); }

    // A native by its Java name, from what the last load registered.
    template <typename Fn>
    Fn native(const char* name) {
        for (size_t i = 0; i < mRuntime.registered.size(); ++i) {
            if (mRuntime.registered[i].first == name) return reinterpret_cast<Fn>(mMethods[i]);
        }
        ADD_FAILURE() << name << " was not registered";
        return nullptr;
    }

    StubRuntime mRuntime;
    std::vector<void*> mMethods;
    android::testing::LogCapture mLog;
};

TEST_F(RotavoxJniTest, EachRefusalOfTheRuntimeEndsTheLoadWhereItHappens) {
    const std::string kClass = "FindClass com/quarlex/music/utils/Rotavox";
    // What the Java class declares, in the order of the registration table.
    const std::vector<std::pair<std::string, std::string>> kNatives = {
            {"nativeSetup", "()I"},
            {"nativeFinalize", "()V"},
            {"nativeSetDataSource", "(Ljava/lang/String;)I"},
            {"nativePrepare", "()I"},
            {"nativePrepareAsync", "()I"},
            {"nativeSetPosition", "(J)I"},
            {"nativeForward", "(I)I"},
            {"nativeRewind", "(I)I"},
            {"nativeSetPlaybackRatePermille", "(I)I"},
            {"nativeReset", "()V"},
            {"nativeGetPosition", "()J"},
    };
    struct Case {
        const char* what;
        void (*stage)(StubRuntime*);
        jint result;
        std::vector<std::string> calls;  // in order; nothing after the refusal
        const char* logged;              // the binding's error line, if any
        int exceptionsCleared;
    } cases[] = {
            {"no environment", [](StubRuntime* r) { r->envAvailable = false; }, -1,
             {"GetEnv 65540"}, nullptr, 0},
            {"no class", [](StubRuntime* r) { r->classFound = false; }, -1,
             {"GetEnv 65540", kClass}, nullptr, 0},
            {"registration refused", [](StubRuntime* r) { r->registerResult = -1; }, -1,
             {"GetEnv 65540", kClass, "RegisterNatives 11"}, nullptr, 0},
            // The methods are registered by now: the library stays loaded.
            {"no global reference", [](StubRuntime* r) { r->globalRefMade = false; }, 0x10004,
             {"GetEnv 65540", kClass, "RegisterNatives 11", "NewGlobalRef"},
             "NewglobalRef failed!", 0},
            // The lookup's NoSuchFieldError would fail the load after all.
            {"no field", [](StubRuntime* r) { r->fieldFound = false; }, 0x10004,
             {"GetEnv 65540", kClass, "RegisterNatives 11", "NewGlobalRef",
              "GetFieldID mNativeData64 J"},
             "Can't find mNativeData64", 1},
            {"all there", [](StubRuntime*) {}, 0x10004,
             {"GetEnv 65540", kClass, "RegisterNatives 11", "NewGlobalRef",
              "GetFieldID mNativeData64 J"},
             nullptr, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        mRuntime = StubRuntime{};
        c.stage(&mRuntime);
        mLog.clear();
        EXPECT_EQ(c.result, load());
        EXPECT_EQ(c.calls, mRuntime.calls);
        const bool registers = c.calls.size() >= 3;
        EXPECT_EQ(registers ? kNatives : decltype(kNatives)(), mRuntime.registered);
        EXPECT_EQ(c.exceptionsCleared, mRuntime.exceptionsCleared);
        EXPECT_EQ(c.logged ? 1 : 0, mLog.count("RotavoxJNI", "", ANDROID_LOG_ERROR));
        if (c.logged) {
            EXPECT_TRUE(mLog.contains("RotavoxJNI", c.logged, ANDROID_LOG_ERROR));
        }
    }
}

class RotavoxJniCallsTest : public RotavoxJniTest {
protected:
    void SetUp() override {
        RotavoxJniTest::SetUp();
        mMethods.clear();
        gEnvTable.RegisterNatives = [](JNIEnv* env, jclass clazz, const JNINativeMethod* methods,
                                       jint count) {
            for (jint i = 0; i < count; ++i) sMethods->push_back(methods[i].fnPtr);
            return RegisterNatives(env, clazz, methods, count);
        };
        sMethods = &mMethods;
        ASSERT_EQ(0x10004, load());
        ASSERT_EQ(11u, mMethods.size());
    }
    void TearDown() override {
        // A player a test left behind goes the way the Java class lets it go.
        if (mObject.nativeData64 != 0) {
            native<void (*)(JNIEnv*, jobject)>("nativeReset")(&gEnv, thiz());
            native<void (*)(JNIEnv*, jobject)>("nativeFinalize")(&gEnv, thiz());
        }
        sMethods = nullptr;
        RotavoxJniTest::TearDown();
    }
    jobject thiz() { return reinterpret_cast<jobject>(&mObject); }
    void openAndPrepare(const char* file) {
        ASSERT_EQ(0, native<jint (*)(JNIEnv*, jobject)>("nativeSetup")(&gEnv, thiz()));
        FakeString path{testing::fixturePath(file)};
        ASSERT_EQ(OK, native<jint (*)(JNIEnv*, jobject, jstring)>("nativeSetDataSource")(
                              &gEnv, thiz(), reinterpret_cast<jstring>(&path)));
        ASSERT_EQ(OK, native<jint (*)(JNIEnv*, jobject)>("nativePrepare")(&gEnv, thiz()));
    }

    static std::vector<void*>* sMethods;
    FakeObject mObject;
};
std::vector<void*>* RotavoxJniCallsTest::sMethods = nullptr;

TEST_F(RotavoxJniCallsTest, EveryCallWithoutAPlayerSaysNotInit) {
    using IntCall = jint (*)(JNIEnv*, jobject);
    using IntArgCall = jint (*)(JNIEnv*, jobject, jint);
    EXPECT_EQ(-1, native<IntCall>("nativePrepare")(&gEnv, thiz()));
    EXPECT_EQ(-1, native<IntCall>("nativePrepareAsync")(&gEnv, thiz()));
    FakeString path{"/nowhere.flac"};
    EXPECT_EQ(-1, native<jint (*)(JNIEnv*, jobject, jstring)>("nativeSetDataSource")(
                          &gEnv, thiz(), reinterpret_cast<jstring>(&path)));
    EXPECT_EQ(-1, native<jint (*)(JNIEnv*, jobject, jlong)>("nativeSetPosition")(&gEnv, thiz(), 5));
    EXPECT_EQ(-1, native<IntArgCall>("nativeForward")(&gEnv, thiz(), 1000));
    EXPECT_EQ(-1, native<IntArgCall>("nativeRewind")(&gEnv, thiz(), 1000));
    EXPECT_EQ(-1, native<IntArgCall>("nativeSetPlaybackRatePermille")(&gEnv, thiz(), 0));
    native<void (*)(JNIEnv*, jobject)>("nativeReset")(&gEnv, thiz());
    EXPECT_EQ(-1, native<jlong (*)(JNIEnv*, jobject)>("nativeGetPosition")(&gEnv, thiz()));
    EXPECT_EQ(9, mLog.count("RotavoxJNI", "not init!", ANDROID_LOG_ERROR));
    // Finalizing what was never set up is quiet and harmless.
    native<void (*)(JNIEnv*, jobject)>("nativeFinalize")(&gEnv, thiz());
    EXPECT_EQ(9, mLog.count("RotavoxJNI", "not init!"));
}

TEST_F(RotavoxJniCallsTest, PositionsGoInAsMillisecondsAndComeOutAsMicroseconds) {
    ASSERT_EQ(0, native<jint (*)(JNIEnv*, jobject)>("nativeSetup")(&gEnv, thiz()));
    const jlong player = mObject.nativeData64;
    ASSERT_NE(0, player);
    // A second setup keeps the player it has.
    ASSERT_EQ(0, native<jint (*)(JNIEnv*, jobject)>("nativeSetup")(&gEnv, thiz()));
    EXPECT_EQ(player, mObject.nativeData64);

    auto setPosition = native<jint (*)(JNIEnv*, jobject, jlong)>("nativeSetPosition");
    auto getPosition = native<jlong (*)(JNIEnv*, jobject)>("nativeGetPosition");
    // Without a file the seek is refused; the status is the whole answer.
    EXPECT_EQ(NO_INIT, setPosition(&gEnv, thiz(), 700));
    EXPECT_EQ(0, mLog.count("RotavoxJNI", ""));

    openAndPrepare("wav16.wav");
    // The scratch source takes a new position on its own thread.
    auto positionBecomes = [&](jlong expectedUs) {
        return testing::waitUntil([&] { return getPosition(&gEnv, thiz()) == expectedUs; },
                                  std::chrono::seconds(5));
    };
    EXPECT_EQ(OK, setPosition(&gEnv, thiz(), 1200));
    EXPECT_TRUE(positionBecomes(1200000)) << getPosition(&gEnv, thiz());
    EXPECT_EQ(OK, setPosition(&gEnv, thiz(), -250));
    EXPECT_TRUE(positionBecomes(0)) << getPosition(&gEnv, thiz());

    native<void (*)(JNIEnv*, jobject)>("nativeFinalize")(&gEnv, thiz());
    EXPECT_EQ(0, mObject.nativeData64);
}

// The watchdog hears every call the application makes, a seek included: an
// application that only seeks past the end (ignored, so the record plays on)
// is still there.  It checks every 500 ms; the calls come every 100 ms.
TEST_F(RotavoxJniCallsTest, EveryKindOfCallKeepsTheWatchdogQuiet) {
    HostAudioOptions options;
    options.sink = "null";  // at the pace of real time
    HostAudioOptionsScope scope(options);
    openAndPrepare("flac16.flac");
    auto forward = native<jint (*)(JNIEnv*, jobject, jint)>("nativeForward");
    auto setPosition = native<jint (*)(JNIEnv*, jobject, jlong)>("nativeSetPosition");
    ASSERT_EQ(OK, forward(&gEnv, thiz(), 1000));
    for (bool seeks : {false, true}) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1200);
        while (std::chrono::steady_clock::now() < end) {
            ASSERT_EQ(OK, seeks ? setPosition(&gEnv, thiz(), 10000) : forward(&gEnv, thiz(), 1000));
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }
    EXPECT_GT(native<jlong (*)(JNIEnv*, jobject)>("nativeGetPosition")(&gEnv, thiz()), 0);
    EXPECT_EQ(0, mLog.count("Rotavox", "no call from app"));
}

}  // namespace
}  // namespace android
