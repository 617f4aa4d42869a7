# The two everyday commands; CMake does the real work.
#   make demo   builds the library and the halftone command only, halftones the built-in chart
#   make test   builds everything and runs the whole test suite
# Developers and CI add warnings as errors: make test CMAKE_FLAGS=-DHALFTONE_WERROR=ON
BUILD ?= build
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_FLAGS ?=

.PHONY: demo test test-sanitize deps configure build clean

deps:
	@scripts/ensure-deps.sh

configure: deps
	cmake -S . -B $(BUILD) -G Ninja $(CMAKE_FLAGS)

build: configure
	cmake --build $(BUILD) -j $(JOBS)

demo: configure
	cmake --build $(BUILD) -j $(JOBS) --target halftone_cli
	$(BUILD)/tools/halftone --time 1 -o halftone.png
	@echo "wrote halftone.png (the built-in chart, halftoned by RoundFaxest); try '$(BUILD)/tools/halftone --list'"

# The Python module's tests take Debian's numpy, pytest and Pillow; the CUPS filter's take CUPS
# itself, its filters and ghostscript (installed before configuring, which looks for libcups).
TEST_PACKAGES = python3-numpy python3-pytest python3-pil python3-setuptools libcups2-dev cups cups-filters ghostscript

test:
	@scripts/ensure-deps.sh $(TEST_PACKAGES)
	@$(MAKE) --no-print-directory build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

# The same suite under AddressSanitizer and UndefinedBehaviorSanitizer.
test-sanitize: deps
	@scripts/ensure-deps.sh $(TEST_PACKAGES)
	cmake -S . -B $(BUILD)-asan -G Ninja -DHALFTONE_SANITIZE=address,undefined $(CMAKE_FLAGS)
	cmake --build $(BUILD)-asan -j $(JOBS)
	ctest --test-dir $(BUILD)-asan --output-on-failure -j $(JOBS)

clean:
	rm -rf $(BUILD) $(BUILD)-asan
