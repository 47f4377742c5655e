// The modes that kovcam knows.

#include "tools/kovcam/Mode.h"

#include <algorithm>
#include <utility>

namespace kov::cam {

namespace {
std::vector<std::unique_ptr<Mode>>& modes() {
    static std::vector<std::unique_ptr<Mode>> all;
    return all;
}
}  // namespace

const std::vector<std::unique_ptr<Mode>>& allModes() {
    return modes();
}

void addMode(std::unique_ptr<Mode> mode) {
    const auto after = std::ranges::upper_bound(modes(), mode->code, {}, [](const auto& other) { return other->code; });
    modes().insert(after, std::move(mode));
}

}  // namespace kov::cam
