# The commands of the project. Each installs what it needs (tools/bootstrap), builds, and does its work.
#
#   make run            stills from pictures (or FILE=...): what is in them, a contact sheet, conversions and back
#   make test           all tests, natively
#   make test-win64     the same tests for Windows, run with wine
#   make asan, tsan     the tests under the address and undefined, or the thread, sanitizer
#   make bench          the benchmarks, beside peers and limits
#   make mutate         2,000 damaged stills of every kind (MUTATIONS, SEED)
#   make fuzz           each fuzzer for FUZZ_SECONDS (60)
#   make kill-run       200 times kill -9 at random moments of a conversion: the old output or the new one is there
#   make install        library, headers, tool and manual below PREFIX (/usr/local), DESTDIR in front

JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
FUZZ_SECONDS ?= 60
MUTATIONS ?= 2000
SEED ?= 20261121
CTEST = ctest --output-on-failure --no-tests=error
.PHONY: run test test-win64 asan tsan bench fuzz mutate kill-run package install clean

# build/NAME: configures and builds the preset NAME, or only the targets named behind it.
define build
	@cmake --preset $(1) >build-$(1).log 2>&1 || { cat build-$(1).log; exit 1; }; mkdir -p build; mv build-$(1).log build/$(1).log
	@cmake --build build/$(1) -j $(JOBS) $(if $(2),--target $(2))
endef

run:
	@tools/bootstrap run
	$(call build,linux-package)
	@tools/run-demo build/linux-package/bin/kqclip "$(FILE)"

test:
	@tools/bootstrap test
	$(call build,linux-release)
	@tools/check all
	@tools/test-install linux-package
	@cd build/linux-release && $(CTEST) -j $(JOBS)

test-win64:
	@tools/bootstrap win64
	$(call build,win64-release)
	@tools/wine-run --server
	@cd build/win64-release && $(CTEST) -j $(JOBS)

asan:
	@tools/bootstrap sanitize
	$(call build,linux-asan)
	@cd build/linux-asan && ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1 $(CTEST) -j $(JOBS)

tsan:
	@tools/bootstrap sanitize
	$(call build,linux-tsan)
	@cd build/linux-tsan && TSAN_OPTIONS=halt_on_error=1 $(CTEST) -j $(JOBS)

bench:
	@tools/bootstrap bench
	$(call build,linux-bench)
	@for program in build/linux-bench/bin/*_bench; do echo "== $${program##*/}"; $$program || exit 1; done

mutate:
	@tools/bootstrap test
	$(call build,linux-release,stills_mutation_test)
	@KQ_MUTATIONS=$(MUTATIONS) KQ_SEED=$(SEED) build/linux-release/bin/stills_mutation_test

fuzz:
	@tools/bootstrap fuzz
	$(call build,linux-fuzz)
	@tools/fuzz-all build/linux-fuzz/bin $(FUZZ_SECONDS)

kill-run:
	@tools/bootstrap test
	$(call build,linux-release)
	@tools/kill-run build/linux-release/bin/kqclip 200

package:
	@tools/bootstrap run
	$(call build,linux-package)

install: package
	@cmake --install build/linux-package --prefix $(PREFIX)

clean:
	rm -rf build
