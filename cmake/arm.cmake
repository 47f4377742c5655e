# 32-bit ARM as on the phone, with Debian's cross compiler; programs run under qemu-user.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(machine arm-linux-gnueabihf)
set(debian_name armhf)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
# The compiler tells at every such place that a calling convention changed in version 7; all of this is newer.
string(APPEND CMAKE_CXX_FLAGS_INIT " -Wno-psabi")
