# Cross-building for 64-bit Arm with Debian's cross compiler and the arm64 multiarch libraries;
# what the build runs (tests, test discovery) goes through qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu /usr/lib/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
# The arm64 multiarch loader and libraries are found in their own places: no -L, under which
# glibc's threads hang in qemu-user.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
