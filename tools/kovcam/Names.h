// Names of message types and command codes, for people.
#pragma once

#include <cstdint>
#include <string>

namespace kov::cam {

/// "PANORAMA_PROGRESS" for 0xA00; empty when it has none.
std::string messageName(int32_t type);
/// "PANORAMA_SHOT_START" for 1019; empty when it has none.
std::string commandName(int32_t code);
/// "0xA00".
std::string hex(int32_t value);

}  // namespace kov::cam
