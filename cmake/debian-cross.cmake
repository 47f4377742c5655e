# What the toolchain files for Debian's cross compilers share: `machine` is the compiler's prefix, `debian_name` Debian's
# name of the machine.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${machine}-gcc)
set(CMAKE_CXX_COMPILER ${machine}-g++)

# Where ./kov unpacks the machine's Debian packages, which cannot be installed beside the native ones.
get_filename_component(packages ${CMAKE_CURRENT_LIST_DIR}/../build/packages-${debian_name} ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${packages})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_C_FLAGS_INIT "-isystem ${packages}/usr/include/${machine}")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT}")
