# The two commands of the README:  make demo  and  make test.
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=
CTEST_FLAGS ?= --output-on-failure -j$(JOBS) --timeout 300

.PHONY: all build test test-asan test-tsan bench deps clean

all: build

deps:
	@missing=$$(for p in $$(grep -v '^#' .ci/packages); do dpkg -s $$p >/dev/null 2>&1 || echo $$p; done); \
	if [ -n "$$missing" ]; then \
	  echo "Installing: $$missing"; \
	  SUDO=; [ "$$(id -u)" = 0 ] || SUDO=sudo; \
	  $$SUDO apt-get update && $$SUDO apt-get install -y --no-install-recommends $$missing; \
	fi

build/build.ninja:
	cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCORVANE_WERROR=ON $(CMAKE_FLAGS)

build: build/build.ninja
	cmake --build build -j$(JOBS)

test: build
	ctest --test-dir build $(CTEST_FLAGS)

build-asan/build.ninja:
	cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
	  -DCORVANE_SANITIZE=address,undefined -DCORVANE_BENCH=OFF $(CMAKE_FLAGS)

test-asan: build-asan/build.ninja
	cmake --build build-asan -j$(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --test-dir build-asan $(CTEST_FLAGS)

# The end-to-end pages run under test-asan only: the browser's threads live
# in Qt and QtWebKit, which ThreadSanitizer cannot see synchronise.
build-tsan/build.ninja:
	cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
	  -DCORVANE_SANITIZE=thread -DCORVANE_BENCH=OFF $(CMAKE_FLAGS)

test-tsan: build-tsan/build.ninja
	cmake --build build-tsan -j$(JOBS)
	TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=$(CURDIR)/tests/tsan.supp ctest --test-dir build-tsan $(CTEST_FLAGS)

# Every fuzz target for FUZZ_SECONDS each under ASan/UBSan (clang, libFuzzer).
FUZZ_SECONDS ?= 60
build-fuzz/build.ninja:
	cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
	  -DCORVANE_SANITIZE=address,undefined -DCORVANE_FUZZ=ON -DCORVANE_TESTS=OFF -DCORVANE_BENCH=OFF $(CMAKE_FLAGS)

.PHONY: fuzz
fuzz: build-fuzz/build.ninja
	cmake --build build-fuzz -j$(JOBS) --target corvane-fuzz
	tests/fuzz/run-fuzz.sh build-fuzz $(FUZZ_SECONDS)

# The demo page in corvane-browser with the plug-in, against kestrix-sim, in
# a private home (build/demo-home): in a window when $DISPLAY is set, else
# headless under Xvfb, saving the page as build/demo.png. Builds only what
# the demo needs; DEMO_BUILD=dir uses another build folder.
DEMO_BUILD ?= build
DEMO_TARGETS = corvane-web corvane-browser corvane-dialog kestrix-sim
.PHONY: demo
# BROWSER=chromium or BROWSER=firefox runs it through the extension and the
# native-messaging host instead, headless (demo/run-webext-demo.sh).
BROWSER ?=
demo: deps
	@[ -f $(DEMO_BUILD)/build.ninja ] || \
	  cmake -S . -B $(DEMO_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCORVANE_WERROR=ON $(CMAKE_FLAGS)
ifeq ($(BROWSER),)
	cmake --build $(DEMO_BUILD) -j$(JOBS) --target $(DEMO_TARGETS)
	demo/run-demo.sh $(DEMO_BUILD)
else
	cmake --build $(DEMO_BUILD) -j$(JOBS) --target corvane-web-host kestrix-sim
	demo/run-webext-demo.sh $(BROWSER) $(DEMO_BUILD)
endif

# The extension for today's browsers, packed (build/webext/*.zip, *.xpi).
.PHONY: webext
webext: build/build.ninja
	cmake --build build --target webext

bench: build
	@for b in build/bench/*_bench; do echo "=== $$b"; $$b --benchmark_counters_tabular=true || exit 1; done
	@if [ -x build/tools/corvane-browser/corvane-browser ] && [ -x build/tools/corvane-dialog/corvane-dialog ]; then \
	  echo "=== bench/readfile_page.sh"; bench/readfile_page.sh build; \
	else echo "=== bench/readfile_page.sh skipped: corvane-browser or corvane-dialog is not built"; fi

# For the current user: libcorvane-web.so and corvane-dialog (beside it,
# where the plug-in looks for it) into ~/.mozilla/plugins, the folder that
# NPAPI browsers on Linux scan; and, for today's browsers, the
# native-messaging host (with its own corvane-dialog) into
# ~/.local/libexec/corvane-web with the Chromium and Firefox manifests
# that name it. make uninstall removes exactly the files listed in the two
# install manifests under build/. System wide, see README.md.
USER_PLUGIN_PREFIX ?= $(HOME)/.mozilla
USER_HOST_PREFIX ?= $(HOME)/.local
USER_MANIFESTS = build/install_manifest_user.txt build/install_manifest_webext-host.txt
.PHONY: install uninstall package
install: build
	cmake --install build --component user --prefix "$(USER_PLUGIN_PREFIX)"
	cmake --install build --component webext-host --prefix "$(USER_HOST_PREFIX)"

uninstall:
	@for m in $(USER_MANIFESTS); do \
	  if [ ! -f $$m ]; then echo "uninstall: $$m is missing: nothing of it installed from build/"; continue; fi; \
	  while IFS= read -r f || [ -n "$$f" ]; do \
	    if [ -n "$$f" ] && { [ -e "$$f" ] || [ -L "$$f" ]; }; then rm -f "$$f" && echo "-- Removed: $$f"; fi; \
	  done < $$m; \
	  rm -f $$m; \
	done

# The Debian package, build/corvane-web_<version>_<arch>.deb (needs dpkg-dev).
package: build
	cd build && cpack -G DEB

# clang-format over every C, C++ and Objective-C++ file of the tree.
CLANG_FORMAT ?= clang-format
FORMAT_FILES = $(shell git ls-files -- '*.c' '*.cc' '*.cpp' '*.h' '*.hpp' '*.m' '*.mm' 2>/dev/null)
.PHONY: format format-check
format:
	@[ -n "$(FORMAT_FILES)" ] || { echo "format: no files (not a git checkout?)" >&2; exit 1; }
	$(CLANG_FORMAT) -i $(FORMAT_FILES)

format-check:
	@[ -n "$(FORMAT_FILES)" ] || { echo "format-check: no files (not a git checkout?)" >&2; exit 1; }
	@$(CLANG_FORMAT) --dry-run -Werror $(FORMAT_FILES) && echo "format-check: $(words $(FORMAT_FILES)) files formatted"

# The macOS sources against GNUstep, in build-osx: every .mm compiled with
# clang, and what GNUstep can run (run loops, panels) run under Xvfb.
.PHONY: check-osx
build-osx/build.ninja:
	cmake -S . -B build-osx -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_OBJCXX_COMPILER=clang++ \
	  -DCORVANE_GNUSTEP_CHECK=ON -DCORVANE_BENCH=OFF -DCORVANE_WERROR=ON $(CMAKE_FLAGS)

check-osx: build-osx/build.ninja
	cmake --build build-osx -j$(JOBS) --target corvane_osx_compile osx_tests
	ctest --test-dir build-osx -L osx $(CTEST_FLAGS)

clean:
	rm -rf build build-asan build-tsan build-fuzz build-osx
