# 64-bit ARM, with Debian's cross compiler; programs run under qemu-user.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(machine aarch64-linux-gnu)
set(debian_name arm64)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /usr/aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
