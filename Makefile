# Front door: `make` builds, `make check` runs every test, `make demo` runs the
# loader against the bundled simulator, `make install` installs under $(PREFIX)
# (staged under $(DESTDIR) when set), `make package` builds a .deb in $(BUILD),
# `make bench` times whole downloads. CMake does the real work in $(BUILD).
BUILD ?= build
JOBS ?= 2
CMAKE_FLAGS ?=
PREFIX ?= /usr/local
DESTDIR ?=

# The Windows programs (qrxbpl.exe, qrxfw.exe), cross-built with MinGW-w64.
WIN_BUILD ?= build-win
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60

.PHONY: all check demo bench install package clean format windows wine-check fuzz fuzz-build \
  fuzz-replay fuzz-seeds windows-package

all: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS)

check: $(BUILD)/CMakeCache.txt
	@grep -qx 'QRX_TESTS_ENABLED:INTERNAL=ON' $(BUILD)/CMakeCache.txt || { \
	  echo "make check: the tests are off in $(BUILD): GoogleTest was not found (or QRX_BUILD_TESTS=OFF)." >&2; \
	  echo "Install it (Debian/Ubuntu: libgtest-dev libgmock-dev; Fedora: gtest-devel gmock-devel), then run 'make clean check'." >&2; \
	  exit 1; }
	cmake --build $(BUILD) -j $(JOBS)
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

demo: all
	tools/demo.sh $(BUILD)

install: all
	DESTDIR="$(DESTDIR)" cmake --install $(BUILD) --prefix "$(PREFIX)"

package: all
	cmake --build $(BUILD) --target package

# Not a test and not in CI: figures depend on the machine and its load.
bench: all
	$(BUILD)/bench/qrx_download_bench $(BUILD)

windows: $(WIN_BUILD)/CMakeCache.txt
	cmake --build $(WIN_BUILD) -j $(JOBS)

$(WIN_BUILD)/CMakeCache.txt:
	cmake -S . -B $(WIN_BUILD) -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/mingw-w64-x86_64.cmake \
	  -DCMAKE_BUILD_TYPE=Release

# qrxbpl-VERSION-win64.zip in $(WIN_BUILD): the programs and a README for Windows.
windows-package: windows
	cmake --build $(WIN_BUILD) --target package

# The end-to-end runs of the Windows loader (and of the zip's) under Wine,
# against the POSIX simulator.
wine-check: windows-package
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS) -DQRX_WINE_TESTS=ON -DQRX_WIN_BUILD_DIR=$(abspath $(WIN_BUILD))
	cmake --build $(BUILD) -j $(JOBS)
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS) -L wine

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
	rm -rf $(BUILD) $(WIN_BUILD) $(FUZZ_BUILD)
