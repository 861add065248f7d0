# The two commands of a new user: `make run` and `make test`.
# Both install what is missing on a Debian machine first.

BUILD      ?= build
TEST_BUILD ?= build-test
JOBS       ?= 2

# Debian packages: the engine's build, the tests' oracles, the benchmarks' references.
PACKAGES = g++ cmake ninja-build ccache qtbase5-dev libgtest-dev libgmock-dev \
           libbenchmark-dev lua5.4 xvfb bc \
           libpng-dev zlib1g-dev libstb-dev python3-pil imagemagick pngcheck clang libclang-rt-14-dev \
           libjpeg-turbo-progs libjpeg62-turbo-dev \
           libfreetype-dev fonts-dejavu-core fonts-urw-base35 python3-fonttools sox libsox-fmt-all ruby

.PHONY: deps build run test clean fuzz bench install package deps-aarch64 test-aarch64

# Installs those of the Debian packages $(1) that are missing; $(2) runs first when any are.
define install-missing
	@missing=""; for p in $(1); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q "install ok installed" || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "installing:$$missing"; \
	  SUDO=$$( [ "$$(id -u)" = 0 ] || echo sudo ); \
	  $(2) $$SUDO apt-get update -qq && DEBIAN_FRONTEND=noninteractive $$SUDO apt-get install -y -qq $$missing; \
	fi
endef

deps:
	$(call install-missing,$(PACKAGES))

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

# The target CPU: cross-built for 64-bit Arm, the script tests and unit tests run under qemu-user,
# headless. The tests that drive the host's own programs (packaging, X server, fuzzers) stay out.
AARCH64_BUILD ?= build-aarch64
AARCH64_PACKAGES = g++-aarch64-linux-gnu qemu-user qtbase5-dev:arm64 libgtest-dev:arm64 libpng-dev:arm64 zlib1g-dev:arm64 \
                   libfreetype-dev:arm64
AARCH64_HOST_ONLY = ^(layers|install|host\.command_line|host\.headless_demo|image\.png_judge|threads\.tsan|window\.xvfb_screenshot|codec\.fuzz|font\.fuzz|audio\.fuzz|ai\.fuzz|ruby\.fuzz|ruby\.differential|lua\.fuzz|lua\.differential)$$
deps-aarch64: deps
	$(call install-missing,$(AARCH64_PACKAGES),$$SUDO dpkg --add-architecture arm64 &&)

test-aarch64: deps-aarch64
	cmake -S . -B $(AARCH64_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release -DOT_TESTS=ON \
	  -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/aarch64-linux-gnu.cmake
	cmake --build $(AARCH64_BUILD) -j $(JOBS)
	cd $(AARCH64_BUILD) && OT_EMULATOR=qemu-aarch64 OT_SCRIPT_TIMEOUT=600 QT_QPA_PLATFORM=offscreen \
	  ctest --output-on-failure -j $(JOBS) -E '$(AARCH64_HOST_ONLY)'

# Longer fuzzing of every file reader and both dialects than `make test` does; FUZZ_TIME
# seconds per target.
FUZZ_BUILD ?= build-fuzz
FUZZ_TIME  ?= 600
fuzz: deps
	bash tests/codec/fuzz.sh $(FUZZ_BUILD) -max_total_time=$(FUZZ_TIME) -print_final_stats=1
	bash tests/font/fuzz.sh $(FUZZ_BUILD)/font -max_total_time=$(FUZZ_TIME) -print_final_stats=1
	bash tests/audio/fuzz.sh $(FUZZ_BUILD)/audio -max_total_time=$(FUZZ_TIME) -print_final_stats=1
	bash tests/ai/fuzz.sh $(FUZZ_BUILD)/ai -max_total_time=$(FUZZ_TIME) -print_final_stats=1
	bash tests/ruby/fuzz.sh $(FUZZ_BUILD)/ruby -max_total_time=$(FUZZ_TIME) -print_final_stats=1
	bash tests/lua/fuzz.sh $(FUZZ_BUILD)/lua -max_total_time=$(FUZZ_TIME) -print_final_stats=1

# Benchmarks: a Release build without sanitizers in its own folder, then every benchmark.
BENCH_BUILD ?= build-bench
bench: build
	cmake -S bench -B $(BENCH_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	bash bench/run.sh $(BENCH_BUILD)
	bash bench/scripts.sh $(BUILD)/orvanetide
	bash bench/lua.sh $(BUILD)/orvanelua
	bash bench/ruby.sh $(BUILD)/orvaneruby

clean:
	rm -rf $(BUILD) $(TEST_BUILD) $(FUZZ_BUILD) $(BENCH_BUILD) $(AARCH64_BUILD)
