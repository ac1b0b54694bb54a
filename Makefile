# Front door: `make` builds, `make check` runs every test, `make demo` runs the
# loader against the bundled simulator, `make bench` times whole downloads. CMake does the real work in $(BUILD).
BUILD ?= build
JOBS ?= 2
CMAKE_FLAGS ?=

.PHONY: all check demo bench clean format

all: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS)

check: all
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

demo: all
	tools/demo.sh $(BUILD)

# Not a test and not in CI: figures depend on the machine and its load.
bench: all
	$(BUILD)/bench/qrx_download_bench $(BUILD)

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h')

clean:
	rm -rf $(BUILD)
