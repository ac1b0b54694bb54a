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

.PHONY: all check demo bench install package clean format windows wine-check

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

# The end-to-end runs of the Windows loader under Wine, against the POSIX simulator.
wine-check: windows
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS) -DQRX_WINE_TESTS=ON -DQRX_WIN_BUILD_DIR=$(abspath $(WIN_BUILD))
	cmake --build $(BUILD) -j $(JOBS)
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS) -L wine

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h')

clean:
	rm -rf $(BUILD) $(WIN_BUILD)
