# Quillo's entry points. Every target installs missing system packages first (quick when all are
# present), so a fresh Debian 12 machine needs nothing but these commands.

BUILD      ?= build
JOBS       ?= $(shell nproc)
GENERATOR  := -G Ninja
FUZZ_TIME  ?= 60
PACKAGE_BUILD ?= $(BUILD)/package

.PHONY: all run test bench fuzz format deps release package clean

all: release

deps:
	@scripts/install-deps

release: deps
	cmake -S . -B $(BUILD)/release $(GENERATOR) -DCMAKE_BUILD_TYPE=Release -DQUILLO_TESTS=OFF
	cmake --build $(BUILD)/release -j $(JOBS) --target quillo

# A Release build without tests, and its Debian package beside it.
package: deps
	cmake -S . -B $(PACKAGE_BUILD) $(GENERATOR) -DCMAKE_BUILD_TYPE=Release -DQUILLO_TESTS=OFF
	cmake --build $(PACKAGE_BUILD) -j $(JOBS)
	cd $(PACKAGE_BUILD) && cpack -G DEB
	@ls $(PACKAGE_BUILD)/quillo_*.deb

run: release
	$(BUILD)/release/src/app/quillo $(ARGS)

test: deps
	cmake -S . -B $(BUILD)/test $(GENERATOR) -DCMAKE_BUILD_TYPE=Debug -DQUILLO_SANITIZE=ON
	cmake --build $(BUILD)/test -j $(JOBS)
	cd $(BUILD)/test && ctest --output-on-failure -j $(JOBS)

bench: deps
	cmake -S . -B $(BUILD)/bench $(GENERATOR) -DCMAKE_BUILD_TYPE=Release -DQUILLO_TESTS=OFF -DQUILLO_BENCH=ON
	cmake --build $(BUILD)/bench -j $(JOBS)
	scripts/run-benchmarks $(BUILD)/bench

fuzz: deps
	cmake -S . -B $(BUILD)/fuzz $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUILLO_TESTS=OFF \
	    -DQUILLO_FUZZ=ON -DCMAKE_CXX_COMPILER=clang++
	cmake --build $(BUILD)/fuzz -j $(JOBS)
	scripts/run-fuzzers $(BUILD)/fuzz $(FUZZ_TIME)

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD)
