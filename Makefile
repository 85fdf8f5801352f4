# Set-up, build, demo, tests and benchmarks. Every target first installs what is missing on a
# Debian machine (with sudo when not root), then configures and builds.
BUILD ?= build
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_FLAGS ?=
ifeq ($(CRATE07_WERROR),ON)
CMAKE_FLAGS += -DCRATE07_WERROR=ON
endif

PACKAGES = build-essential cmake pkg-config clang-format libopenimageio-dev libcli11-dev \
	nlohmann-json3-dev libgtest-dev libgmock-dev libbenchmark-dev libcpp-httplib-dev zlib1g-dev
# The viewer's test in a real browser.
BROWSER_PACKAGES = chromium chromium-driver python3-selenium

# The fuzz targets want clang and its libFuzzer runtime.
FUZZ_PACKAGES = clang libclang-rt-14-dev
# Seconds each fuzz target runs for; the corpus grows in build-fuzz/corpus-<target>, seeded from
# fuzz/corpus/<target>. Reports of a fault go to build-fuzz/reports, the input that made it to
# build-fuzz/crash-*.
FUZZ_TIME ?= 60
FUZZ_TARGETS = Flow Values Image

.PHONY: all deps browser-deps fuzz-deps build demo test bench asan fuzz sweep faults format format-check clean ofx \
	install viewer screenshots latency

all: build

# Installs the Debian packages named in $(1) that are missing.
define install_missing
	@missing=""; for p in $(1); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q "install ok installed" || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "Installing:$$missing"; \
	  if [ "$$(id -u)" = 0 ]; then SUDO=""; else SUDO=sudo; fi; \
	  $$SUDO apt-get update -qq && DEBIAN_FRONTEND=noninteractive $$SUDO apt-get install -y -qq $$missing; \
	fi
endef

deps:
	$(call install_missing,$(PACKAGES))

browser-deps:
	$(call install_missing,$(BROWSER_PACKAGES))

fuzz-deps:
	$(call install_missing,$(FUZZ_PACKAGES))

$(BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release $(CMAKE_FLAGS)

build: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

# The demo needs only the executable.
demo: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS) --target crate07
	./$(BUILD)/crate07 render examples/demo.json

test: build browser-deps
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# The OpenFX bundle, and its installation (OFX_DIR defaults to the standard plug-in folder).
OFX_DIR ?= /usr/OFX/Plugins
ofx: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS) --target crate07ofx
	@echo "bundle: $(BUILD)/Crate07.ofx.bundle"

install: build
	cmake -S . -B $(BUILD) -DCRATE07_OFX_DIR="$(OFX_DIR)"
	cmake --install $(BUILD) --component ofx
	@echo "installed $(OFX_DIR)/Crate07.ofx.bundle"

# The viewer on examples/viewer.json: open the address it prints.
viewer: build
	./$(BUILD)/crate07 serve examples/viewer.json

# Pictures of the viewer's page for Ripple, Clouds and Rain, into docs/.
screenshots: build browser-deps
	/usr/bin/python3 tests/browser/viewer_test.py ./$(BUILD)/crate07 --screenshots docs

# The time from a slider's move to its new picture at 720x486, in the browser.
latency: build browser-deps
	/usr/bin/python3 tests/browser/viewer_test.py ./$(BUILD)/crate07 --latency 30

# The long equivalence sweeps in full (the ordinary test run takes a sample of each).
sweep: build
	CRATE07_SWEEP=1 ./$(BUILD)/crate07_tests

# Each deliberate fault of tests/faults/faults.txt applied to a scratch copy: which tests fail.
faults: deps
	JOBS=$(JOBS) tests/faults/run.sh

bench: build
	./$(BUILD)/crate07_bench --benchmark_min_time=0.2

# The tests again under AddressSanitizer and UndefinedBehaviorSanitizer.
asan: deps
	cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DCRATE07_SANITIZE=ON -DCRATE07_BENCH=OFF $(CMAKE_FLAGS)
	cmake --build build-asan -j $(JOBS)
	cd build-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 ctest --output-on-failure -j $(JOBS)

# Each libFuzzer target for FUZZ_TIME seconds under the address and undefined-behaviour
# sanitizers, one after the other.
fuzz: deps fuzz-deps
	CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCRATE07_FUZZ=ON \
	  -DCRATE07_TESTS=OFF -DCRATE07_BENCH=OFF
	cmake --build build-fuzz -j $(JOBS) --target $(addprefix fuzz,$(FUZZ_TARGETS))
	@mkdir -p build-fuzz/reports
	@set -e; for t in $(FUZZ_TARGETS); do \
	  lower=$$(echo $$t | tr A-Z a-z); mkdir -p build-fuzz/corpus-$$lower; \
	  echo "fuzz$$t for $(FUZZ_TIME) s"; \
	  ASAN_OPTIONS=log_path=build-fuzz/reports/asan:detect_leaks=0 \
	  UBSAN_OPTIONS=log_path=build-fuzz/reports/ubsan:print_stacktrace=1 \
	  ./build-fuzz/fuzz$$t -max_total_time=$(FUZZ_TIME) -rss_limit_mb=2048 -timeout=20 \
	    -artifact_prefix=build-fuzz/ -print_final_stats=1 \
	    build-fuzz/corpus-$$lower fuzz/corpus/$$lower 2>build-fuzz/fuzz$$t.log || \
	    { tail -30 build-fuzz/fuzz$$t.log; cat build-fuzz/reports/* 2>/dev/null; exit 1; }; \
	  grep -E "^stat::number_of_executed_units|^stat::peak_rss_mb|cov:" build-fuzz/fuzz$$t.log | tail -3; \
	done

FORMAT_FILES = $(shell git ls-files '*.cpp' '*.h' 2>/dev/null)
format:
	clang-format -i $(FORMAT_FILES)
format-check:
	clang-format --dry-run -Werror $(FORMAT_FILES)

clean:
	rm -rf $(BUILD) build-asan build-fuzz
