# Front door: every target sets up what it needs, builds, and runs.
BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
JOBS       ?= $(shell nproc)
CMAKE_ARGS ?=

.PHONY: all deps configure build demo test asan fuzz bench format clean

all: build

deps:
	@./scripts/install-deps.sh

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) -G Ninja $(CMAKE_ARGS)

configure: deps $(BUILD)/build.ninja

build: configure
	cmake --build $(BUILD) -j $(JOBS)

demo: build
	./scripts/demo.sh $(BUILD)

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

$(ASAN_BUILD)/build.ninja:
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DVARNICK_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug $(CMAKE_ARGS)

asan: deps $(ASAN_BUILD)/build.ninja
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --output-on-failure -j $(JOBS)
	$(MAKE) fuzz FUZZ_SEED_PROGRAM=$(ASAN_BUILD)/bin/varnick-engine

# The engine's fuzz target under clang, in a build of its own that needs only
# the engine; it runs FUZZ_SECONDS on seeds made from small archives, and a
# crash, leak or hang fails the target. The seed program, when built, adds
# seeds of the engine's own formats.
FUZZ_SECONDS      ?= 60
FUZZ_SEED_PROGRAM ?= $(BUILD)/bin/varnick-engine

$(FUZZ_BUILD)/build.ninja:
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -G Ninja -DVARNICK_ENGINE_FUZZ=ON \
	  -DVARNICK_BUILD_TESTS=OFF $(CMAKE_ARGS)

fuzz: deps $(FUZZ_BUILD)/build.ninja
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target engine_fuzz
	./engine/fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_SECONDS) $(FUZZ_SEED_PROGRAM)

# The benchmark needs the engine and its developer program only.
bench: configure
	cmake --build $(BUILD) -j $(JOBS) --target app-varnick-engine
	./bench/run.sh $(BUILD)

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h')

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD)
