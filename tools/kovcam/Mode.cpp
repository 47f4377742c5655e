// The modes that kovcam knows.

#include "tools/kovcam/Mode.h"

#include <algorithm>
#include <utility>

#include "shots/Commands.h"

namespace kov::cam {

namespace {
std::vector<std::unique_ptr<Mode>>& modes() {
    static std::vector<std::unique_ptr<Mode>> all;
    return all;
}
const android::KovMode& description(int32_t code) {
    return *std::ranges::find(android::kKovModes, code, &android::KovMode::code);
}
}  // namespace

Mode::Mode(int32_t modeCode)
    : name(description(modeCode).name), code(modeCode), summary(description(modeCode).summary) {}

const std::vector<std::unique_ptr<Mode>>& allModes() {
    return modes();
}

void addMode(std::unique_ptr<Mode> mode) {
    const auto after = std::ranges::upper_bound(modes(), mode->code, {}, [](const auto& other) { return other->code; });
    modes().insert(after, std::move(mode));
}

}  // namespace kov::cam
