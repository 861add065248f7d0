# The two commands of a new user: `make run` and `make test`.
# Both install what is missing on a Debian machine first.

BUILD      ?= build
TEST_BUILD ?= build-test
JOBS       ?= 2

# Debian packages: the engine's build, the tests' oracles, the benchmarks' references.
PACKAGES = g++ cmake ninja-build ccache qtbase5-dev libgtest-dev libgmock-dev \
           libbenchmark-dev lua5.4 xvfb bc \
           libpng-dev zlib1g-dev libstb-dev python3-pil imagemagick pngcheck clang libclang-rt-14-dev

.PHONY: deps build run test clean fuzz bench install package

deps:
	@missing=""; for p in $(PACKAGES); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q "install ok installed" || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "installing:$$missing"; \
	  SUDO=$$( [ "$$(id -u)" = 0 ] || echo sudo ); \
	  $$SUDO apt-get update -qq && DEBIAN_FRONTEND=noninteractive $$SUDO apt-get install -y -qq $$missing; \
	fi

build: deps
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release -DOT_TESTS=OFF
	cmake --build $(BUILD) -j $(JOBS)

run: build
	cd demo && QT_QPA_PLATFORM=$${QT_QPA_PLATFORM:-$$( [ -n "$$DISPLAY$$WAYLAND_DISPLAY" ] && echo xcb || echo offscreen )} ../$(BUILD)/orvanetide

test: deps
	cmake -S . -B $(TEST_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DOT_SANITIZE=ON -DOT_TESTS=ON
	cmake --build $(TEST_BUILD) -j $(JOBS)
	cd $(TEST_BUILD) && ctest --output-on-failure -j $(JOBS)

# Installs into PREFIX (default /usr/local): the executable, the demo, the reference.
PREFIX ?= /usr/local
install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

# A Debian package of the Release build, in $(BUILD)/.
package: build
	cd $(BUILD) && cpack -G DEB

# Longer fuzzing of the image codecs than `make test` does; FUZZ_TIME seconds per target.
FUZZ_BUILD ?= build-fuzz
FUZZ_TIME  ?= 600
fuzz: deps
	bash tests/codec/fuzz.sh $(FUZZ_BUILD) -max_total_time=$(FUZZ_TIME) -print_final_stats=1

# Benchmarks: a Release build without sanitizers in its own folder, then every benchmark.
BENCH_BUILD ?= build-bench
bench: build
	cmake -S bench -B $(BENCH_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	bash bench/run.sh $(BENCH_BUILD)
	bash bench/scripts.sh $(BUILD)/orvanetide

clean:
	rm -rf $(BUILD) $(TEST_BUILD) $(FUZZ_BUILD) $(BENCH_BUILD)
