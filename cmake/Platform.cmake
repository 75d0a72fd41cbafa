# Third-party pieces of the host platform: Debian's Android libraries, FFmpeg,
# SDL2, GoogleTest.  Debian ships the Android libraries without pkg-config or
# CMake files, in an android/ folder outside the loader's path, hence the rpath.

set(ANDROID_INCLUDE_DIR /usr/include/android)
set(ANDROID_LIB_DIR /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)
if(NOT EXISTS ${ANDROID_INCLUDE_DIR}/utils/RefBase.h)
  message(FATAL_ERROR "Debian's android-libutils-dev is missing (run scripts/install-deps)")
endif()

foreach(lib utils log cutils)
  add_library(android::${lib} SHARED IMPORTED GLOBAL)
  set_target_properties(android::${lib} PROPERTIES
    IMPORTED_LOCATION ${ANDROID_LIB_DIR}/lib${lib}.so
    INTERFACE_SYSTEM_INCLUDE_DIRECTORIES ${ANDROID_INCLUDE_DIR}
    INTERFACE_INCLUDE_DIRECTORIES ${ANDROID_INCLUDE_DIR})
endforeach()
set(CMAKE_BUILD_RPATH ${ANDROID_LIB_DIR})
set(CMAKE_INSTALL_RPATH ${ANDROID_LIB_DIR})

find_package(PkgConfig REQUIRED)
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET libavformat libavcodec libavutil libswresample)
pkg_check_modules(SDL2 REQUIRED IMPORTED_TARGET sdl2)
pkg_check_modules(SNDFILE REQUIRED IMPORTED_TARGET sndfile)
find_package(Threads REQUIRED)
find_package(GTest REQUIRED)
# The tools: arguments and JSON.
find_package(CLI11 CONFIG REQUIRED)
find_package(nlohmann_json 3 REQUIRED)

# Warnings are errors in our own code only; the platform headers come in as
# system headers.
# -Wno-multichar as in the platform's own build: media keys and message codes
# are four-character constants ('mime', 'seek').
set(ROTAVOX_WARNINGS -Wall -Werror -Wno-multichar)
# clang checks the lock annotations (GUARDED_BY, REQUIRES, ... from
# utils/Mutex.h); a field touched without its lock fails the build.  GCC has
# no such analysis and the annotations compile away there.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  list(APPEND ROTAVOX_WARNINGS -Wthread-safety -Werror=thread-safety)
endif()

# find_package(JNI) needs JAVA_HOME; Debian's OpenJDK 17 is the one the
# project installs (other JDKs a machine may carry are ignored).
execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE ROTAVOX_DEB_ARCH
                OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(NOT ROTAVOX_DEB_ARCH)
  set(ROTAVOX_DEB_ARCH amd64)
endif()
if(NOT DEFINED ENV{JAVA_HOME} AND EXISTS /usr/lib/jvm/java-17-openjdk-${ROTAVOX_DEB_ARCH})
  set(ENV{JAVA_HOME} /usr/lib/jvm/java-17-openjdk-${ROTAVOX_DEB_ARCH})
endif()
