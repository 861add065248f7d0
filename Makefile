# The two commands of a new user: `make run` and `make test`.
# Both install what is missing on a Debian machine first.

BUILD      ?= build
TEST_BUILD ?= build-test
JOBS       ?= 2

# Debian packages: the engine's build, the tests' oracles, the benchmarks' references.
PACKAGES = g++ cmake ninja-build ccache qtbase5-dev libgtest-dev libgmock-dev \
           libbenchmark-dev lua5.4 xvfb

.PHONY: deps build run test clean

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

clean:
	rm -rf $(BUILD) $(TEST_BUILD)
