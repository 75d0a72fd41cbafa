# Cross build for 64-bit Arm (make test ARCH=arm64, into build-arm64/):
# Debian's cross toolchain and the :arm64 multiarch libraries that
# scripts/install-deps-arm64 installs beside the amd64 ones.  Arm64.cmake
# (included when cross-compiling) puts qemu-user in front of every program
# the build runs.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# Multiarch keeps both architectures under one root, so the search root stays
# /; only pkg-config needs telling which .pc files are arm64's.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")
