# GrabSystem: a thin front over the CMake presets (see CMakePresets.json).
#
#   make test      install missing packages, build, run every test (ctest)
#   make run       build and run the tool's main job: grabsys demo
#   make bench     optimised build, benchmarks, RATIO summary
#   make asan      tests under AddressSanitizer + UndefinedBehaviorSanitizer
#   make tsan      tests under ThreadSanitizer
#   make tsa       clang build with lock annotations checked (-Wthread-safety)
#   make fuzz      every fuzz target for FUZZ_SECONDS (default 60) each
#   make windows   cross-build the Windows DLL, grabsys.exe and the tests (mingw-w64)
#   make test-windows  run that test suite under wine64, D: mapped to a temp folder
#   make install   install into PREFIX (default /usr/local)

SHELL := /bin/bash
PREFIX ?= /usr/local

DEPS := cmake ninja-build g++ make pkg-config python3 python3-pil python3-lz4 liblz4-dev libgcrypt20-dev openssl libgtest-dev libbenchmark-dev libcli11-dev libpng-dev \
  libaravis-dev libusb-1.0-0-dev \
  python3-dev pybind11-dev python3-pybind11 python3-numpy python3-pytest python3-venv python3-pip python3-setuptools python3-wheel \
  python3-dask python3-distributed python3-pandas
DEPS_TSA := clang
# libFuzzer's runtime is only recommended by clang, and the installs here
# skip recommendations.
DEPS_FUZZ := clang libclang-rt-dev
DEPS_WINDOWS := g++-mingw-w64-x86-64-posix libgcrypt-mingw-w64-dev binutils-mingw-w64-x86-64 dpkg-dev
DEPS_WINE := wine64
SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

# Installs only the packages of $(1) that are missing.
define install_missing
	@missing=""; for p in $(1); do dpkg -s $$p >/dev/null 2>&1 || missing="$$missing $$p"; done; \
	if [ -n "$$missing" ]; then \
	  echo "== installing:$$missing"; \
	  $(SUDO) apt-get update -qq && DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y -qq --no-install-recommends $$missing; \
	else echo "== packages present: $(1)"; fi
endef

# Configures, builds and (with a third argument) tests one preset.
define preset
	@echo "== configure and build: preset $(1)"
	cmake --preset $(1) $(2) >/dev/null
	cmake --build --preset $(1)
endef

.PHONY: deps build test run bench asan tsan tsa fuzz windows test-windows install clean

FUZZ_SECONDS ?= 60
FUZZ_TARGETS := raw_image bmp img_info ffc_table value_raw arm_view image_package general_package exporter lz4

deps:
	$(call install_missing,$(DEPS))

build: deps
	$(call preset,dev)

test: build
	@echo "== test: preset dev"
	ctest --preset dev

run: build
	@echo "== run: grabsys demo"
	./build/dev/tools/grabsys/grabsys demo

bench: deps
	$(call preset,release)
	@echo "== benchmarks"
	python3 bench/run_benchmarks.py build/release/bench

asan: deps
	$(call preset,asan)
	@echo "== test: preset asan"
	ctest --preset asan

tsan: deps
	$(call preset,tsan)
	@echo "== test: preset tsan"
	ctest --preset tsan

tsa: deps
	$(call install_missing,$(DEPS_TSA))
	$(call preset,clang-tsa)

# Each fuzz target for FUZZ_SECONDS on a seed corpus made from files the
# library writes; findings land in build/fuzz/findings.
fuzz: build
	$(call install_missing,$(DEPS_FUZZ))
	$(call preset,fuzz)
	fuzz/make_seeds.sh build/dev/tools/grabsys/grabsys build/fuzz/seeds
	@mkdir -p build/fuzz/findings
	@for t in $(FUZZ_TARGETS); do \
	  echo "== fuzz_$$t for $(FUZZ_SECONDS) s"; \
	  mkdir -p build/fuzz/corpus/$$t; \
	  build/fuzz/fuzz/fuzz_$$t build/fuzz/corpus/$$t build/fuzz/seeds/$$t -max_total_time=$(FUZZ_SECONDS) -rss_limit_mb=2560 \
	    -artifact_prefix=build/fuzz/findings/$$t- -print_final_stats=1 2>&1 | grep -E '^(#[0-9]+.*DONE|stat::number_of_executed_units|stat::peak_rss|==[0-9]+==ERROR|SUMMARY)' || true; \
	done
	@if ls build/fuzz/findings/* >/dev/null 2>&1; then echo "== findings:"; ls build/fuzz/findings; exit 1; fi

windows: deps
	$(call install_missing,$(DEPS_WINDOWS))
	cmake/windows-deps.sh
	$(call preset,windows)
	@ls -l build/windows/bin/grabsystem.dll build/windows/grabsystem/libgrabsystem.dll.a build/windows/bin/grabsys.exe

test-windows: windows
	$(call install_missing,$(DEPS_WINE))
	@echo "== test: preset windows, under wine64"
	cmake/test-windows.sh

install: build
	cmake --install build/dev --prefix $(PREFIX)

clean:
	rm -rf build
