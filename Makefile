# A thin front for the CMake presets (CMakePresets.json). Each preset builds in build/<preset>.

JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
FILE ?=
FUZZ_SECONDS ?= 60
FUZZERS ?=

.DEFAULT_GOAL := build
.PHONY: help deps build demo test asan tsan clang fuzz soak bench bench-link format lint docs install clean

help:
	@echo 'deps     packages (as root) and the source of lwIP'
	@echo 'build    the release build'
	@echo 'demo     copies files between two processes, a stack in each: make demo [FILE=...]'
	@echo 'test     the tests; make asan, make tsan: the same under sanitizers; make clang: built by clang'
	@echo 'fuzz     the fuzzers, FUZZ_SECONDS=$(FUZZ_SECONDS) each; FUZZERS="name..." for some of them'
	@echo 'soak     the long tests'
	@echo 'bench    the benchmarks; bench-link: two processes and a link, beside a tunnel by socat (as root)'
	@echo 'format   clang-format over all sources; lint: clang-tidy, cppcheck, format and words'
	@echo 'docs     reference pages by doxygen'
	@echo 'install  into PREFIX=$(PREFIX); DESTDIR is honoured'
	@echo 'clean    removes the builds'

deps:
	@sh scripts/deps.sh

# Configures and builds the preset $(1).
build_preset = cmake --preset $(1) && cmake --build --preset $(1) --parallel $(JOBS)

build: deps
	$(call build_preset,release)

# Once built, the demo also runs for who may not write here.
demo:
	@if [ -w build/release ] || [ ! -x build/release/bin/filecopy ]; then \
		sh scripts/deps.sh && $(call build_preset,release) --target filecopy; fi
	build/release/bin/filecopy $(FILE)

test: build
	ctest --preset release --parallel $(JOBS)

# The thread sanitizer of gcc 12 cannot live with more than 28 random bits in its addresses.
FIXED_ADDRESSES := $(shell [ "$$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 0)" -gt 28 ] && echo setarch -R)

asan tsan: deps
	$(call build_preset,$@)
	$(FIXED_ADDRESSES) ctest --preset $@ --parallel $(JOBS)

clang:
	@sh scripts/deps.sh clang
	$(call build_preset,$@)
	ctest --preset $@ --parallel $(JOBS)

fuzz:
	@sh scripts/deps.sh fuzz
	$(call build_preset,fuzz)
	@FUZZ_SECONDS=$(FUZZ_SECONDS) sh tests/fuzz/run.sh build/fuzz $(FUZZERS)

soak: build
	ctest --preset soak

bench:
	@sh scripts/deps.sh bench
	$(call build_preset,bench)
	cmake --build --preset bench --target run_bench

bench-link:
	@sh scripts/deps.sh bench
	$(call build_preset,bench) --target link_bench kernel_trip
	@sh bench/link/run.sh build/bench/bin

format:
	@sh scripts/deps.sh lint
	@sh scripts/format.sh

lint:
	@sh scripts/deps.sh lint
	@JOBS=$(JOBS) sh scripts/lint.sh

docs:
	@sh scripts/deps.sh docs
	@mkdir -p build/docs
	doxygen docs/Doxyfile

install: build
	DESTDIR="$(DESTDIR)" cmake --install build/release --prefix "$(PREFIX)"

clean:
	rm -rf build
