# Thin wrapper over CMake. `make run` and `make test` install what they need first.
BUILD ?= build
CMAKE_FLAGS ?=

.PHONY: run test build deps format format-check test-asan fuzz clean

run: deps
	@bash scripts/run.sh

test: deps
	@bash scripts/test.sh

deps:
	@bash scripts/install-deps.sh

build: deps
	@cmake -S . -B $(BUILD) -G Ninja $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD)

test-asan: deps
	@VANTALO_SANITIZE=1 bash scripts/test.sh

# Each fuzz target for FUZZ_SECONDS (default 60), from its seed corpus in fuzz/corpus.
FUZZ_SECONDS ?= 60
fuzz: deps
	@bash scripts/fuzz.sh $(FUZZ_SECONDS)

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

format-check:
	@bash scripts/check-format.sh

# Benchmarks: make bench-<name> builds and runs bench/<name>.
bench-%: deps
	@bash scripts/bench.sh $*

clean:
	@rm -rf build build-asan build-fuzz
