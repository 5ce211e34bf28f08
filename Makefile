# make run       builds vornsim and runs the default scenario on the default platform
# make test      builds with AddressSanitizer and UndefinedBehaviorSanitizer and runs every test
# make firmware  builds the module in EDK2 and the QEMU platform firmware (OVMF with SMM) under build/
# make qemu-test boots that firmware under QEMU with Linux in both profiles and checks what Linux reports
# make powercut  the full power-cut campaign, as specified and with --fix all; writes the
#                data-loss tables into README.md
# make bench     the cost table, counted in instructions by callgrind (bench-curves: the growth
#                curves; bench-readme: both, written into README.md and Bench/GrowthCurves.png)
# make volume-svg           redraws the README's picture of the error-log volume with vornsim
# make golden [NAME=erst]     regenerates the golden logs (all, or one) with the test build's vornsim
# make mutate [ONLY=S01,G03]  runs the mutation check (scripts/mutate.py; long)
# make fuzz [FUZZ_SECONDS=600] [ONLY=ErstSmiFuzz,HestFuzz]  runs each libFuzzer harness (Fuzz/)
#                as specified and with --fix all, one run at a time (long: see README)
JOBS ?= $(shell nproc)
RUN_DIR := build/run
TEST_DIR := build/test
BENCH_DIR := build/bench

.PHONY: run test deps volume-svg firmware qemu-test clang golden mutate fuzz format clean bench bench-build bench-curves bench-readme powercut

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

powercut: deps
	@cmake -S . -B $(RUN_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORN_TESTS=OFF > /dev/null
	@cmake --build $(RUN_DIR) -j $(JOBS) --target vornsim
	@python3 scripts/powercut-readme.py $(RUN_DIR)/vornsim README.md

volume-svg: deps
	@cmake -S . -B $(RUN_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORN_TESTS=OFF > /dev/null
	@cmake --build $(RUN_DIR) -j $(JOBS) --target vornsim
	@scripts/volume-svg.sh $(RUN_DIR)/vornsim Simulator/Decode/FlashVolume.svg

firmware:
	@scripts/ensure-deps.sh firmware
	@scripts/firmware.sh

qemu-test:
	@scripts/ensure-deps.sh firmware
	@scripts/qemu-test.sh

# The same build under Clang, warnings as errors, and every test.
clang: deps
	@CXX=clang++ cmake -S . -B build/clang -DCMAKE_BUILD_TYPE=Debug > /dev/null
	@cmake --build build/clang -j $(JOBS)
	@ctest --test-dir build/clang --output-on-failure -j $(JOBS)

golden: deps
	@cmake -S . -B $(TEST_DIR) -DCMAKE_BUILD_TYPE=Debug -DVORN_SANITIZE=ON > /dev/null
	@cmake --build $(TEST_DIR) -j $(JOBS) --target vornsim
	@set -e; for scenario in Test/Golden/$(or $(NAME),*).cmd; do \
	  name=$$(basename $$scenario .cmd); \
	  cmake -DVORNSIM=$(CURDIR)/$(TEST_DIR)/vornsim -DSCENARIO=$(CURDIR)/$$scenario -DWORKDIR=$(CURDIR)/$(TEST_DIR)/golden-update/$$name \
	    -DUPDATE=ON -P Test/Golden/RunGolden.cmake; \
	done

mutate: deps
	@nice -n 10 python3 scripts/mutate.py $(if $(ONLY),--only $(ONLY))

FUZZ_SECONDS ?= 600
fuzz: deps
	@CXX=clang++ cmake -S . -B build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORN_FUZZ=ON -DVORN_TESTS=OFF > /dev/null
	@cmake --build build/fuzz -j $(JOBS)
	@scripts/fuzz.sh build/fuzz $(FUZZ_SECONDS) $(ONLY)

# The release build, linked with link-time optimisation as firmware builds are.
bench-build: deps
	@scripts/ensure-deps.sh bench
	@cmake -S . -B $(BENCH_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORN_TESTS=OFF \
	  -DCMAKE_INTERPROCEDURAL_OPTIMIZATION=ON > /dev/null
	@cmake --build $(BENCH_DIR) -j $(JOBS) --target vornbench

bench: bench-build
	@python3 Bench/bench.py table $(BENCH_DIR)

bench-curves: bench-build
	@python3 Bench/bench.py curves $(BENCH_DIR) Bench/GrowthCurves.png

bench-readme: bench-curves
	@python3 Bench/bench.py table $(BENCH_DIR) --readme README.md

format:
	@clang-format -i $$(git ls-files '*.cpp' '*.h')

clean:
	rm -rf build
