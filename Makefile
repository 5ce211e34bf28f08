# make run       builds vornsim and runs the default scenario on the default platform
# make test      builds with AddressSanitizer and UndefinedBehaviorSanitizer and runs every test
# make firmware  builds the module as an EDK2 SMM driver (EDK2 and its build under build/edk2)
JOBS ?= $(shell nproc)
RUN_DIR := build/run
TEST_DIR := build/test

.PHONY: run test deps firmware clang format clean

deps:
	@scripts/ensure-deps.sh

run: deps
	@cmake -S . -B $(RUN_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORN_TESTS=OFF > /dev/null
	@cmake --build $(RUN_DIR) -j $(JOBS) --target vornsim
	@cd $(RUN_DIR) && ./vornsim

test: deps
	@cmake -S . -B $(TEST_DIR) -DCMAKE_BUILD_TYPE=Debug -DVORN_SANITIZE=ON > /dev/null
	@cmake --build $(TEST_DIR) -j $(JOBS)
	@ctest --test-dir $(TEST_DIR) --output-on-failure -j $(JOBS)

firmware:
	@scripts/ensure-deps.sh firmware
	@scripts/firmware.sh

# The same build under Clang, warnings as errors.
clang: deps
	@CXX=clang++ cmake -S . -B build/clang -DCMAKE_BUILD_TYPE=Debug > /dev/null
	@cmake --build build/clang -j $(JOBS)

format:
	@clang-format -i $$(git ls-files '*.cpp' '*.h')

clean:
	rm -rf build
