# Thin wrapper: the real build is CMake (see CMakePresets.json).
PRESET ?= release
BUILD := build/$(PRESET)
JOBS ?= $(shell nproc)

.PHONY: all configure build test demo bench clean

all: build

configure:
	@test -f $(BUILD)/build.ninja || cmake --preset $(PRESET)

build: configure
	cmake --build $(BUILD) -j $(JOBS)

test: build
	# Real-time capture tests measure sync against the wall clock; one retry keeps a loaded
	# machine from failing a run that passes on its own.
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS) --timeout 900 --repeat until-pass:2

demo: build
	scripts/demo $(BUILD)

bench: build
	scripts/bench-compare $(BUILD)

clean:
	rm -rf build
