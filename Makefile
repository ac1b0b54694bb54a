# Front door: `make` builds, `make check` runs every test, `make demo` runs the
# loader against the bundled simulator. CMake does the real work in $(BUILD).
BUILD ?= build
JOBS ?= 2
CMAKE_FLAGS ?=

FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60

.PHONY: all check demo clean format fuzz fuzz-build fuzz-replay fuzz-seeds

all: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS)

check: all
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

demo: all
	tools/demo.sh $(BUILD)

# libFuzzer targets (clang-14): `make fuzz` replays every seed and reproducer,
# then fuzzes each target for FUZZ_SECONDS; `make fuzz-replay` only replays.
fuzz-build:
	cmake -S . -B $(FUZZ_BUILD) -DQRX_FUZZ=ON -DCMAKE_C_COMPILER=clang-14 \
	  -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(FUZZ_BUILD) -j $(JOBS)

fuzz: fuzz-build
	fuzz/run.sh fuzz $(FUZZ_BUILD) $(FUZZ_SECONDS)

fuzz-replay: fuzz-build
	fuzz/run.sh replay $(FUZZ_BUILD)

# Writes the seed corpora again from the image library and recorded runs.
fuzz-seeds: fuzz-build
	rm -rf fuzz/corpus
	$(FUZZ_BUILD)/fuzz/fuzz_make_seeds fuzz/corpus

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h')

clean:
	rm -rf $(BUILD) $(FUZZ_BUILD)
