# The README's commands. `make run` and `make test` each install what is
# missing first, so a fresh clone needs nothing but these. Each target asks
# scripts/install-deps for its own purposes only: the program alone needs
# neither the test tools nor clang 16.
.PHONY: run test build bench deps format clean asan tsan check-macos check-includes fuzz install uninstall

JOBS ?= $(shell nproc 2>/dev/null || sysctl -n hw.ncpu 2>/dev/null || echo 2)

deps:
	@scripts/install-deps program

# The library and the program only: the release preset builds no test and no
# benchmark.
build: deps
	@cmake --preset release >/dev/null
	@cmake --build --preset release -j $(JOBS)

run: build
	@build/release/cli/unbulk scan

test:
	@scripts/install-deps test
	@cmake --preset debug >/dev/null
	@cmake --build --preset debug -j $(JOBS)
	@ctest --preset debug -j $(JOBS)

# The whole suite under ASan and UBSan, built with clang 16: with the GCC
# build of make test, every file is compiled by both, warnings as errors.
asan:
	@scripts/install-deps test clang
	@cmake --preset asan >/dev/null
	@cmake --build --preset asan -j $(JOBS)
	@ctest --preset asan -j $(JOBS)

# The threaded code under ThreadSanitizer, against a oneTBB built with it
# (scripts/tsan-tbb): every test program labelled "threaded" in
# tests/CMakeLists.txt (the governor, the scan's event stream and stages, the
# audit logger, the app scanner, the space lens, the parallel measure, ...).
# A label that selects nothing is a failure, not a pass.
tsan:
	@scripts/install-deps test
	@scripts/tsan-tbb
	@cmake --preset tsan >/dev/null
	@cmake --build --preset tsan -j $(JOBS) --target threaded_tests
	@ctest --preset tsan -j $(JOBS) -L threaded --no-tests=error

# libFuzzer targets in the asan tree (clang 16), each run for FUZZ_SECONDS
# (default 30), one per core at a time. That tree builds the tests too, so it
# wants their tools.
fuzz:
	@scripts/install-deps test clang
	@scripts/fuzz

# Every #include of core/, mcp/ and cli/ points down the floors of
# docs/ARCHITECTURE.md (the table is in the script).
check-includes:
	@scripts/check-includes

# clang 16 with libc++ 16 over every source; with MACOS_SDK set, also every
# .cpp and .mm for arm64 and x86_64 macOS 13 against that SDK, the static
# analyzer over the Apple-only sources, and a link of the darwin objects
# against the SDK's stubs.
check-macos:
	@scripts/install-deps test bench clang
	@scripts/check-macos

# PREFIX (default /usr/local) and DESTDIR as packagers expect. uninstall
# removes exactly the files the last install wrote.
PREFIX ?= /usr/local
install: build
	@cmake --install build/release --prefix "$(PREFIX)"

uninstall:
	@if [ -f build/release/install_manifest.txt ]; then \
	  while IFS= read -r file || [ -n "$$file" ]; do rm -f "$(DESTDIR)$${file#"$(DESTDIR)"}" && echo "removed $(DESTDIR)$${file#"$(DESTDIR)"}"; done < build/release/install_manifest.txt; \
	else echo "nothing installed from build/release"; fi

# The release tree, with the benchmarks turned on in it.
bench:
	@scripts/install-deps bench
	@cmake --preset release -DUNBULK_BUILD_BENCH=ON >/dev/null
	@cmake --build --preset release -j $(JOBS)
	@bench/run-all build/release

format:
	@git ls-files '*.cpp' '*.hpp' '*.mm' | xargs clang-format -i

clean:
	@rm -rf build
