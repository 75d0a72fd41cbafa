# What the arm64 cross build needs beyond its toolchain file: qemu-user as
# the emulator of every program ctest runs, and Debian's arm64 7z.so.

# Debian's arm64 libbacktrace (libutils needs it) links 7z.so through a
# runpath that resolves to the amd64 copy here.  scripts/install-deps-arm64
# unpacks the arm64 one into this folder instead of installing a package that
# would replace the amd64 one; the linker and the emulator look there.
set(ROTAVOX_ARM64_7Z_DIR ${CMAKE_BINARY_DIR}/p7zip CACHE PATH "Folder holding Debian's arm64 7z.so")
if(NOT EXISTS ${ROTAVOX_ARM64_7Z_DIR}/7z.so)
  message(FATAL_ERROR "No arm64 7z.so in ${ROTAVOX_ARM64_7Z_DIR} (run scripts/install-deps-arm64 ${CMAKE_BINARY_DIR})")
endif()
add_link_options(-Wl,-rpath-link,${ROTAVOX_ARM64_7Z_DIR})

find_program(QEMU_AARCH64 qemu-aarch64 REQUIRED NO_CMAKE_FIND_ROOT_PATH)

# No binfmt_misc handler is registered for arm64 on these machines, so the
# host kernel refuses to start an arm64 program ("Exec format error"), and
# an emulated program that starts one fails: GoogleTest's death tests
# re-execute their own argv[0].  Every program therefore runs through
# bin-host/qemu-run, whose emulated argv[0] is bin-host/qemu-reexec: a
# re-execution lands there and goes back under the emulator.
set(ROTAVOX_QEMU_DIR ${CMAKE_BINARY_DIR}/bin-host)
foreach(mode run reexec)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/qemu-run.in ${ROTAVOX_QEMU_DIR}/qemu-${mode}
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                     WORLD_READ WORLD_EXECUTE
    @ONLY)
endforeach()
set(CMAKE_CROSSCOMPILING_EMULATOR ${ROTAVOX_QEMU_DIR}/qemu-run)

# Deadlines in tests only bound a hang, and ctest's timeouts bound a test;
# under emulation everything is several times slower, FFmpeg's decoding most.
set(ROTAVOX_TEST_TIME_FACTOR 4)

message(STATUS "Cross build for ${CMAKE_SYSTEM_PROCESSOR}: tests run under ${QEMU_AARCH64}, deadlines and timeouts x${ROTAVOX_TEST_TIME_FACTOR}")
