// What the fuzzers have kept, once more: every input that reaches something of its own.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/Targets.h"

namespace {

using Run = void (*)(const uint8_t* bytes, size_t size);

size_t replay(const char* target, Run run) {
    size_t inputs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(KOV_CORPUS) / target)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        run(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        ++inputs;
    }
    return inputs;
}

// Each ends the process when anything is left over, or a library is misused.
TEST(ReplayTest, Sessions) {
    EXPECT_GT(replay("shots", kov::test::runSession), 100U);
}

TEST(ReplayTest, SessionsAtOnce) {
    EXPECT_GT(replay("shots", kov::test::runSessionsAtOnce), 100U);
}

TEST(ReplayTest, JpegEncoder) {
    EXPECT_GT(replay("jpeg", kov::test::runEncoder), 5U);
}

#ifdef KOV_TEXTS
TEST(ReplayTest, Texts) {
    EXPECT_GT(replay("texts", kov::test::runText), 50U);
}
#endif

}  // namespace
