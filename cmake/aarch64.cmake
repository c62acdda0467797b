# Cross build for 64-bit ARM on Debian: g++-aarch64-linux-gnu, arm64 packages beside the host's, qemu-user to run it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
# Programs are the host's; libraries never are.
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu)
