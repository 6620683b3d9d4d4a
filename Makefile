# The README's commands. `make run` and `make test` each install what is
# missing first, so a fresh clone needs nothing but these.
.PHONY: run test build bench deps format clean asan tsan check-macos fuzz install uninstall

JOBS ?= $(shell nproc 2>/dev/null || sysctl -n hw.ncpu 2>/dev/null || echo 2)

deps:
	@scripts/install-deps

build: deps
	@cmake --preset release >/dev/null
	@cmake --build --preset release -j $(JOBS)

run: build
	@build/release/cli/unbulk scan

test: deps
	@cmake --preset debug >/dev/null
	@cmake --build --preset debug -j $(JOBS)
	@ctest --preset debug -j $(JOBS)

# The whole suite under ASan and UBSan, built with clang 16: with the GCC
# build of make test, every file is compiled by both, warnings as errors.
asan: deps
	@cmake --preset asan >/dev/null
	@cmake --build --preset asan -j $(JOBS)
	@ctest --preset asan -j $(JOBS)

# The threaded code under ThreadSanitizer, against a oneTBB built with it
# (scripts/tsan-tbb): the governor, the scan's event stream and stages, the
# audit logger, the app scanner, the space lens and the parallel measure.
# TSAN_TESTS is the ctest -R expression of the tests run; tests of programs
# that were not built are left out.
TSAN_TARGETS ?= test_Scanner_ThermalGovernorTests test_Scanner_DeepScanEngineTests \
  test_Scanner_RegistryStagesTests test_Safety_AuditLoggerTests test_Uninstaller_AppScannerTests \
  test_SpaceLens_SpaceLensEngineTests test_Platform_ParallelTreeMeasureTests test_Scanner_ItemMeasurerTests
TSAN_TESTS ?= ThermalGovernor|ScanEventStream|DeepScanEngine|RegistryStages|AuditLogger|AppScanner|SpaceLens|ParallelTreeMeasure|ItemMeasurer
tsan: deps
	@scripts/tsan-tbb
	@cmake --preset tsan >/dev/null
	@cmake --build --preset tsan -j $(JOBS) --target $(TSAN_TARGETS)
	@ctest --preset tsan -j $(JOBS) -R '$(TSAN_TESTS)' -E '_NOT_BUILT$$'


# libFuzzer targets with clang 16, each run for FUZZ_SECONDS (default 30).
fuzz: deps
	@scripts/fuzz

# clang 16 with libc++ 16 over every source; with MACOS_SDK set, also every
# .cpp and .mm for arm64 and x86_64 macOS 13 against that SDK, the static
# analyzer over the Apple-only sources, and a link of the darwin objects
# against the SDK's stubs.
check-macos: deps
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

bench: build
	@bench/run-all build/release

format:
	@git ls-files '*.cpp' '*.hpp' '*.mm' | xargs clang-format -i

clean:
	@rm -rf build
