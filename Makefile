# A thin front over the CMake presets. `make help` lists what there is.
SHELL := /bin/sh
BUILD := build
RUN_DIR := $(BUILD)/run
PREFIX ?= /usr/local
JOBS := $(shell nproc)
# Most tests wait for programs, clocks and sockets most of the time.
TEST_JOBS := $(shell expr 4 \* $(JOBS))

.PHONY: help deps build run demo test test-i386 test-deb bench asan tsan tidy format fuzz install deb clean \
        asan-build asan-test tsan-build tsan-test

help:
	@echo "make run      install what is missing, build, start the daemon on the example chassis"
	@echo "make demo     install what is missing, build, play what the daemon does in about a minute"
	@echo "make test     install what is missing, build, run every test"
	@echo "make test-i386  build and run unit and integration tests on 32 bits, in a root of its own (needs root)"
	@echo "make bench    build and run the benchmarks"
	@echo "make asan     every test under the address and undefined behaviour sanitizers"
	@echo "make tsan     every test under the thread sanitizer"
	@echo "make tidy     clang-tidy over every source of the product"
	@echo "make format   clang-format over every source"
	@echo "make fuzz     every fuzz target for a minute"
	@echo "make install  install (honours DESTDIR and PREFIX)"
	@echo "make deb      the Debian packages, in $(BUILD)/packages"
	@echo "make test-deb the packages in a clean root: installed, used, upgraded, removed (needs root)"

deps:
	@.ci/install-packages

build: deps
	@cmake --preset release -DCMAKE_INSTALL_PREFIX=$(PREFIX) > $(BUILD).log 2>&1 || { cat $(BUILD).log; exit 1; }
	@rm -f $(BUILD).log
	@cmake --build --preset release -j $(JOBS)

run: build
	@mkdir -p $(RUN_DIR)
	@echo
	@echo "The daemon runs in the foreground on the example chassis; Ctrl-C stops it. In another terminal:"
	@echo "  tail -f $(RUN_DIR)/log/sensors/*.log                               the sensor logs as they grow"
	@echo "  $(BUILD)/bin/zelkor-regctl tree                                        everything the daemon knows, live"
	@echo "  $(BUILD)/bin/zelkor-regctl watch                                       crossings and changes as they come"
	@echo "  $(BUILD)/bin/zelkor-regctl set fans 4000                               all fans, until the control's next cycle"
	@echo "  $(BUILD)/bin/zelkor-chassisctl --socket $(RUN_DIR)/chassis.sock list           boards and sensors"
	@echo "  $(BUILD)/bin/zelkor-chassisctl --socket $(RUN_DIR)/chassis.sock set io/1 1 99  past its limit: the board is powered down"
	@echo "  $(BUILD)/bin/zelkor-chassisctl --socket $(RUN_DIR)/chassis.sock heal io/1      let the sensor go; the board stays off"
	@echo
	@cp examples/config/demo.xml $(RUN_DIR)/demo.xml
	@mkdir -p $(BUILD)/chassis && cp examples/chassis/*.xml $(BUILD)/chassis/
	@$(BUILD)/bin/zelkor-platformd --config $(RUN_DIR)/demo.xml --log-dir $(RUN_DIR)/log

demo: build
	@examples/demo/run $(BUILD)

test: build
	@ctest --preset release -j $(TEST_JOBS)

test-i386:
	@.ci/install-packages .ci/packages-i386
	@.ci/test-i386

bench: build
	@.ci/install-packages .ci/packages-bench
	@bench/run $(BUILD)

asan tsan: %: %-test

asan-build tsan-build: %-build: deps
	@cmake --preset $*
	@cmake --build --preset $* -j $(JOBS)

asan-test tsan-test: %-test: %-build
	@ctest --preset $* -j $(TEST_JOBS)

tidy:
	@.ci/install-packages .ci/packages .ci/packages-lint
	@cmake --preset tidy
	@cmake --build --preset tidy -j $(JOBS)

format:
	@.ci/install-packages .ci/packages-lint
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

fuzz:
	@.ci/install-packages .ci/packages .ci/packages-lint
	@cmake --preset fuzz
	@cmake --build --preset fuzz -j $(JOBS)
	@fuzz/run build-fuzz

install: build
	@cmake --install $(BUILD)

# The date of the build, and of every file in the packages, is that of the change that is built.
deb: export SOURCE_DATE_EPOCH ?= $(shell git log -1 --format=%ct 2>/dev/null || date +%s)
deb: deps
	@cmake --preset release > $(BUILD).log 2>&1 || { cat $(BUILD).log; exit 1; }
	@rm -f $(BUILD).log
	@cmake --build --preset release -j $(JOBS) --target packaged
	@rm -rf $(BUILD)/packages
	@umask 022 && cd $(BUILD) && cpack > cpack.log 2>&1 || { cat cpack.log; exit 1; }
	@ls $(BUILD)/packages/*.deb

# Status 77: this machine cannot do it, and says why.
test-deb: deb
	@cmake --build --preset release -j $(JOBS) --target e2e_programs
	@python3 tests/packaging/check_clean_root.py $(BUILD)

clean:
	@rm -rf build build-*
