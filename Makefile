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

# Every target first asks tools/deps.sh for what it needs (the one list of
# packages): missing ones are installed when that needs no question, else the
# target stops with the command that installs them.
DEPS = tools/deps.sh
# The programs a user runs; `make demo` builds these and nothing else.
PROGRAMS = qrxbpl qrxvps qrxfw
# What `make install` and `make package` take: the programs and the man pages.
INSTALLED = $(PROGRAMS) qrx_man_pages

.PHONY: all check demo bench install package clean format windows wine-check fuzz fuzz-build \
  fuzz-replay fuzz-seeds windows-package

# Configures DIR with the flags that follow. A configure that stops half-way
# leaves a CMakeCache.txt behind, so only the stamp of one that finished counts
# as done; after a failure the next run configures again over what is there.
configure = @[ -f $(1)/qrx-configured ] || { rm -f $(1)/qrx-configured && cmake -S . -B $(1) $(2) && touch $(1)/qrx-configured; }

all:
	@$(DEPS) all
	$(call configure,$(BUILD),$(CMAKE_FLAGS))
	cmake --build $(BUILD) -j $(JOBS)

# The tests may have been switched off by a configure that ran before
# GoogleTest was there: configure once more before refusing.
check:
	@$(DEPS) check
	$(call configure,$(BUILD),$(CMAKE_FLAGS))
	@grep -qx 'QRX_TESTS_ENABLED:INTERNAL=ON' $(BUILD)/CMakeCache.txt || \
	  cmake -S . -B $(BUILD) $(CMAKE_FLAGS) >/dev/null
	@grep -qx 'QRX_TESTS_ENABLED:INTERNAL=ON' $(BUILD)/CMakeCache.txt || { \
	  echo "make check: the tests are off in $(BUILD): GoogleTest was not found, or QRX_BUILD_TESTS=OFF or CMAKE_DISABLE_FIND_PACKAGE_GTest=ON in CMAKE_FLAGS." >&2; \
	  exit 1; }
	cmake --build $(BUILD) -j $(JOBS)
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

demo:
	@$(DEPS) demo
	$(call configure,$(BUILD),$(CMAKE_FLAGS))
	cmake --build $(BUILD) -j $(JOBS) --target $(PROGRAMS)
	tools/demo.sh $(BUILD)

install:
	@$(DEPS) install
	$(call configure,$(BUILD),$(CMAKE_FLAGS))
	cmake --build $(BUILD) -j $(JOBS) --target $(INSTALLED)
	DESTDIR="$(DESTDIR)" cmake --install $(BUILD) --prefix "$(PREFIX)"

# Stamped with the commit's date (unless SOURCE_DATE_EPOCH is set already), so
# two packages of one commit hold the same programs byte for byte.
package:
	@$(DEPS) package
	$(call configure,$(BUILD),$(CMAKE_FLAGS))
	epoch=$${SOURCE_DATE_EPOCH:-$$(git log -1 --format=%ct 2>/dev/null)}; \
	  if [ -n "$$epoch" ]; then export SOURCE_DATE_EPOCH=$$epoch; fi; \
	  cmake --build $(BUILD) -j $(JOBS) --target $(INSTALLED) && \
	  cmake --build $(BUILD) --target package

# Not a test and not in CI: figures depend on the machine and its load.
bench:
	@$(DEPS) bench
	$(call configure,$(BUILD),$(CMAKE_FLAGS))
	cmake --build $(BUILD) -j $(JOBS)
	$(BUILD)/bench/qrx_download_bench $(BUILD)

windows:
	@$(DEPS) windows
	$(call configure,$(WIN_BUILD),-DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/mingw-w64-x86_64.cmake -DCMAKE_BUILD_TYPE=Release)
	cmake --build $(WIN_BUILD) -j $(JOBS)

# qrxbpl-VERSION-win64.zip in $(WIN_BUILD): the programs and a README for Windows.
windows-package: windows
	cmake --build $(WIN_BUILD) --target package

# The end-to-end runs of the Windows loader (and of the zip's) under Wine,
# against the POSIX simulator.
wine-check: windows-package
	@$(DEPS) wine-check
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS) -DQRX_WINE_TESTS=ON -DQRX_WIN_BUILD_DIR=$(abspath $(WIN_BUILD))
	@touch $(BUILD)/qrx-configured
	cmake --build $(BUILD) -j $(JOBS)
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS) -L wine

# libFuzzer targets (clang-14): `make fuzz` replays every seed and reproducer,
# then fuzzes each target for FUZZ_SECONDS; `make fuzz-replay` only replays.
fuzz-build:
	@$(DEPS) fuzz
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

# Deletes every build directory there is (the plain, Windows and fuzz builds),
# naming each; no other target deletes a build.
clean:
	@for dir in $(BUILD) $(WIN_BUILD) $(FUZZ_BUILD); do \
	  if [ -e "$$dir" ]; then echo "make clean: deleting $$dir/"; rm -rf "$$dir"; fi; \
	done
