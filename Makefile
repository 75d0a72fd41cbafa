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

ifeq ($(SANITIZE),)
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

.PHONY: all deps configure build test demo bench fuzz soak clean

all: build

deps:
	@scripts/install-deps

configure: deps
	@cmake -S . -B $(BUILD_DIR) $(CMAKE_FLAGS) > $(BUILD_DIR).configure.log 2>&1 \
	  || { cat $(BUILD_DIR).configure.log; exit 1; }

build: configure
	cmake --build $(BUILD_DIR) -j $(JOBS)

# Every test under ctest.  CTEST_ARGS lets a developer narrow it down,
# e.g. make test CTEST_ARGS='-R MediaBufferCache'.
test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS) --timeout 600 $(CTEST_ARGS)

demo: build
	scripts/demo $(BUILD_DIR) $(FILE)

bench: build
	scripts/bench $(BUILD_DIR)

# libFuzzer targets (fuzz/) in their own clang configuration, build-fuzz/,
# each run for FUZZ_SECONDS.
fuzz: deps
	@CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DROTAVOX_FUZZ=ON \
	  > build-fuzz.configure.log 2>&1 || { cat build-fuzz.configure.log; exit 1; }
	cmake --build build-fuzz -j $(JOBS) --target fuzzers
	scripts/fuzz build-fuzz $(FUZZ_SECONDS)

# The soak (tools/rotavox-soak) under ASan for SOAK_SECONDS; CI runs it for
# 2 minutes on the build of its ASan stage.
soak:
	$(MAKE) build SANITIZE=address
	cd build-asan && ROTAVOX_FIXTURES=$$PWD/fixtures ROTAVOX_PROPERTIES_FILE= \
	  ROTAVOX_PROPERTIES=host.audio.sink=null ROTAVOX_SOAK_SEED=$(SOAK_SEED) \
	  ./bin/rotavox-soak --seconds $(SOAK_SECONDS)

clean:
	rm -rf build build-asan build-tsan build-fuzz build*.configure.log
