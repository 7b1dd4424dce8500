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

build-tsan/build.ninja:
	cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
	  -DCORVANE_SANITIZE=thread -DCORVANE_BENCH=OFF $(CMAKE_FLAGS)

test-tsan: build-tsan/build.ninja
	cmake --build build-tsan -j$(JOBS)
	TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 ctest --test-dir build-tsan $(CTEST_FLAGS)

bench: build
	@for b in build/bench/*_bench; do echo "=== $$b"; $$b --benchmark_counters_tabular=true || exit 1; done

clean:
	rm -rf build build-asan build-tsan
