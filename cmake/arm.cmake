# 32-bit ARM as on the phone, with Debian's cross compiler; programs run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

# Where ./kov unpacks Debian's armhf packages, which cannot be installed beside the native ones.
get_filename_component(packages ${CMAKE_CURRENT_LIST_DIR}/../build/arm-packages ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${packages})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_C_FLAGS_INIT "-isystem ${packages}/usr/include/arm-linux-gnueabihf")
# The compiler tells at every such place that a calling convention changed in version 7; all of this is newer.
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT} -Wno-psabi")

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)
