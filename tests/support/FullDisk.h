// A full disk for a program that a test runs.
#pragma once

#include <string>

namespace kov::test {

/// What stands before a program's name in a shell's line, so that files in the folder hold 4096 bytes and no more.
inline std::string fullDisk(const std::string& folder) {
    return "KOV_FULL_DISK='" + folder +
           "' ASAN_OPTIONS=$ASAN_OPTIONS:verify_asan_link_order=0 LD_PRELOAD='" KOV_FULLDISK "' ";
}

}  // namespace kov::test
