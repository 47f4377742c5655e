# Example of a toolchain file for a phone: copy it, fill in what stands in angle brackets, and build with
#
#     cmake -S . -B build/phone -G Ninja --toolchain cmake/phone.cmake
#     cmake --build build/phone
#
# Any C++20 compiler for the phone's machine will do whose C++ runtime the phone has (or -static-libstdc++).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER <prefix>-gcc)
set(CMAKE_CXX_COMPILER <prefix>-g++)
set(CMAKE_FIND_ROOT_PATH <folder with the phone's include/jpeglib.h and lib/libjpeg.so>)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_BUILD_TYPE Release CACHE STRING "")
# The platform's headers, several folders separated by semicolons; they take the place of platform/.
set(KOV_PLATFORM_INCLUDE "<frameworks>/include;<system>/core/include" CACHE STRING "")
# The phone's libraries, by name (with -L) or by path: the vendor camera, the closed libraries, the platform's own.
set(KOV_CLOSED_LIBRARIES
    "-L<system>/lib;camera;arccamera;PanoraMax1;ActionShot;PlusMe;caps;media;camera_client;binder;utils;cutils;log"
    CACHE STRING "")
