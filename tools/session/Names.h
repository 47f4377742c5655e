// Names of commands and messages, for people. The modes describe theirs in shots/.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kov::cam {

struct NamedCode {
    int32_t code;
    std::string name;
    std::string meaning;
};

/// "PANORAMA_PROGRESS" for 0xA00; empty when it has none.
std::string messageName(int32_t type);
/// "PANORAMA_SHOT_START" for 1019; empty when it has none.
std::string commandName(int32_t code);
/// The type or code of a name as above; nothing for a name that is unknown.
std::optional<int32_t> messageType(const std::string& name);
std::optional<int32_t> commandCode(const std::string& name);
/// All of them, in the order of their codes. Modes are selected by commands too: "MODE_PANORAMA".
const std::vector<NamedCode>& allMessages();
const std::vector<NamedCode>& allCommands();
/// What CARTOON_SHOT_SELECT_EFFECT takes as arg1: "cartoon" for 0 and so on; "none" leaves frames as they are.
const std::vector<NamedCode>& cartoonEffects();
/// "0xA00".
std::string hex(int32_t value);

}  // namespace kov::cam
