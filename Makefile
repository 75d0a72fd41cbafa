# Front door of the project: installs what is missing, configures CMake,
# builds and runs.  `make demo` and `make test` are the two commands a
# newcomer needs; everything else is for developers.

JOBS      ?= $(shell nproc)
SANITIZE  ?=
BUILD_TYPE ?= RelWithDebInfo
FILE      ?=
FUZZ_SECONDS ?= 60
SOAK_SECONDS ?= 60
SOAK_SEED    ?=
PREFIX       ?= /usr/local

# ARCH=arm64: cross build with Debian's toolchain into build-arm64/, tests
# run under qemu-user (cmake/toolchain-arm64.cmake).
ARCH ?=
ifeq ($(ARCH),arm64)
  ifneq ($(SANITIZE),)
    $(error ARCH=arm64 builds the plain configuration only)
  endif
  BUILD_DIR ?= build-arm64
else ifneq ($(ARCH),)
  $(error ARCH must be empty or 'arm64')
else ifeq ($(SANITIZE),)
  BUILD_DIR ?= build
else ifeq ($(SANITIZE),address)
  BUILD_DIR ?= build-asan
else ifeq ($(SANITIZE),thread)
  BUILD_DIR ?= build-tsan
else
  $(error SANITIZE must be empty, 'address' or 'thread')
endif

# Debian's OpenJDK 17 for this machine's architecture (amd64, arm64, ...).
export JAVA_HOME ?= /usr/lib/jvm/java-17-openjdk-$(shell dpkg --print-architecture 2>/dev/null || echo amd64)

CMAKE_FLAGS = -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DROTAVOX_SANITIZE=$(SANITIZE)
TEST_TIMEOUT = 600
ifeq ($(ARCH),arm64)
  CMAKE_FLAGS += -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/toolchain-arm64.cmake
  TEST_TIMEOUT = 2400
endif

.PHONY: all deps configure build test demo bench fuzz soak install deb clean

all: build

# DEPS_TARGET: which set of packages scripts/install-deps installs.
DEPS_TARGET ?= test
deps:
	@scripts/install-deps $(DEPS_TARGET)
ifeq ($(ARCH),arm64)
	@scripts/install-deps-arm64 $(BUILD_DIR)
endif

configure: deps
	@cmake -S . -B $(BUILD_DIR) $(CMAKE_FLAGS) > $(BUILD_DIR).configure.log 2>&1 \
	  || { cat $(BUILD_DIR).configure.log; exit 1; }

build: configure
	cmake --build $(BUILD_DIR) -j $(JOBS)

# Every test under ctest.  CTEST_ARGS lets a developer narrow it down,
# e.g. make test CTEST_ARGS='-R MediaBufferCache'.
test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS) --timeout $(TEST_TIMEOUT) $(CTEST_ARGS)

# Only what the demo needs, with a line per stage; the build's own output
# goes to a log that is shown when it fails.
DEMO_TARGETS = rotavox rotavox_java rotavox_demo fixtures
demo:
	@$(MAKE) --no-print-directory configure DEPS_TARGET=demo
	@echo "demo: building the engine, the Java class and the demo (log: $(BUILD_DIR).demo-build.log)"
	@cmake --build $(BUILD_DIR) -j $(JOBS) --target $(DEMO_TARGETS) > $(BUILD_DIR).demo-build.log 2>&1 \
	  || { tail -n 40 $(BUILD_DIR).demo-build.log; exit 1; }
	@scripts/demo $(BUILD_DIR) $(FILE)

# cmake --install under PREFIX (FHS: bin, lib/.../jni, share/java, share/man).
install: build
	cmake --install $(BUILD_DIR) --prefix $(PREFIX)

# The Debian package (CPack), in $(BUILD_DIR): apt install ./librotavox_*.deb
deb:
	$(MAKE) build DEPS_TARGET=deb
	cd $(BUILD_DIR) && cpack -G DEB

bench:
	$(MAKE) build DEPS_TARGET=bench
	scripts/bench $(BUILD_DIR)

# libFuzzer targets (fuzz/) in their own clang configuration, build-fuzz/,
# each run for FUZZ_SECONDS.  The binding's library is built there too, so
# that clang's lock analysis covers every engine source.
fuzz:
	@scripts/install-deps fuzz
	@CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DROTAVOX_FUZZ=ON \
	  > build-fuzz.configure.log 2>&1 || { cat build-fuzz.configure.log; exit 1; }
	cmake --build build-fuzz -j $(JOBS) --target fuzzers rotavox
	scripts/fuzz build-fuzz $(FUZZ_SECONDS)

# The soak (tools/rotavox-soak) under ASan for SOAK_SECONDS; CI runs it for
# 2 minutes on the build of its ASan stage.
soak:
	$(MAKE) build SANITIZE=address
	cd build-asan && ROTAVOX_FIXTURES=$$PWD/fixtures ROTAVOX_PROPERTIES_FILE= \
	  ROTAVOX_PROPERTIES=host.audio.sink=null ROTAVOX_SOAK_SEED=$(SOAK_SEED) \
	  ./bin/rotavox-soak --seconds $(SOAK_SECONDS)

clean:
	rm -rf build build-asan build-tsan build-fuzz build-arm64 build*.configure.log
