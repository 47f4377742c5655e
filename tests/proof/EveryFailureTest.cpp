// Every failure, one at a time: a session of each mode is run once to count the calls that may fail, and then once for
// each of them, in which that call alone fails.

#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/ShotSession.h"
#include "host/runtime/Log.h"
#include "tests/proof/CountedNew.h"

namespace {

using kov::test::gFailingNew;
using kov::test::gInProduct;
using kov::test::gNews;
using Bytes = std::vector<uint8_t>;

struct Step {
    uint8_t bytes[4];
};
constexpr Step command(int code, uint8_t argument = 0) {
    return {{1, static_cast<uint8_t>(code - 999), argument, 0}};
}
constexpr Step frames(uint8_t count, uint8_t apart = 10) {
    return {{13, count, apart, 0}};
}
constexpr Step kStartPreview = {{7, 0, 0, 0}}, kTakePicture = {{7, 2, 0, 0}}, kSendPicture = {{3, 1, 0, 0}},
               kRunThread = {{9, 0, 0, 0}};

struct Session {
    const char* name;
    uint8_t mode;
    std::vector<Step> steps;
};

// A normal session of each mode, from start to picture.
const Session kSessions[] = {
    {"single", 0, {kStartPreview, kTakePicture, kSendPicture}},
    {"continuous", 1, {kStartPreview, command(1026, 1), command(1023), frames(3, 100), command(1024), kRunThread}},
    {"panorama", 2, {kStartPreview, command(1022), command(1019), frames(3), command(1019)}},
    {"smile", 3, {kStartPreview, command(1017), frames(3), kSendPicture}},
    {"self", 6, {kStartPreview, frames(3), kTakePicture, kRunThread}},
    {"add-me",
     9,
     {kStartPreview, command(1033), command(1034), frames(1), kSendPicture, command(1035, 1), kSendPicture}},
    {"action", 10, {kStartPreview, command(1029), frames(2), command(1031), frames(1)}},
    {"cartoon", 13, {kStartPreview, frames(1), kSendPicture}},
};

// Places that fail without a line: what was decided for them is to go on. All others write one.
const std::set<std::string> kSilent = {
    // The service's own callbacks, and operations whose result it gets.
    "service", "setCallbacks", "setCallbacks stored", "startPreview", "stopPreview", "takePicture", "sendCommand",
    "msgTypeEnabled",
    // Answers of which every one is good: numbers, volumes, properties.
    "ActionShot_AcquisitionProgress", "ActionShot_CreateResult", "ActionShot_GetAcquisitionDisplayData",
    "ActionShot_IsConnected", "estimateIterationCount", "getCurIterationCount", "pixelBitSize", "getSituationVolume",
    "property_get",
    // Results that nobody looks at. An encoder without a manager or without its encoder writes no picture, if that.
    "AMCM_Create", "AMCM_RegisterEx", "MStreamSeek", "MStreamRead", "AMFPAF_SetFaceOutPriority",
    "AMFPAF_SetTrackingFrameNumber", "PlusMe_HandlePreview", "PlusMe_SetConfigurationParameter", "PlusMe_SetTempBuffer",
    "beginCartoon", "setCartoon", "endCartoon", "beginRotate", "setRotate", "endRotate", "setJpegQuality", "prepare",
    "seekTo", "setAudioStreamType", "setVolume", "start", "setParameters", "px_abort",
    // What is given back is gone, whatever the library says.
    "AMCM_Destroy", "MStreamClose", "AMFPAF_UninitialFaceEngine", "ASSD_UninitSmileEngine", "PlusMe_Finalize",
    "destroyBuffer", "destroyImage", "destroyIterator", "destroySession", "destroyStream in", "destroyStream out",
    // Action works in as many blocks as it gets.
    "action allocate"};

Bytes bytesOf(const Session& session) {
    Bytes bytes = {0, session.mode, 0, 0};
    for (const Step& step : session.steps)
        bytes.insert(bytes.end(), step.bytes, step.bytes + 4);
    return bytes;
}

struct Outcome {
    std::vector<const char*> sites;  // of the calls, in their order
    std::set<std::string> lines;     // that were written, without their numbers and addresses
    int again = 0;                   // pictures of the mode after the failure, from a fresh start
    int single = 0;                  // pictures of the next mode
};

/// Runs a session in which the call of this number fails; none for a number beyond them.
Outcome run(const Session& session, size_t failing) {
    Outcome outcome;
    const int sink = kov::host::addLogSink([&](const kov::host::LogLine& line) {
        const bool inProduct = std::exchange(gInProduct, false);
        std::string text(line.message);
        std::erase_if(text, [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); });
        outcome.lines.insert(text);
        gInProduct = inProduct;
    });
    const Bytes bytes = bytesOf(session);
    const auto pictures = [](const std::vector<Step>& steps) {
        const int before = kov::test::picturesReceived();
        for (const Step& step : steps)
            kov::test::takeStep(step.bytes);
        return kov::test::picturesReceived() - before;
    };
    kov::test::runSession(
        bytes.data(), bytes.size(),
        [&](const char* site) -> uint32_t {
            outcome.sites.push_back(site);
            return outcome.sites.size() - 1 == failing;
        },
        [&] {
            std::vector<Step> afresh = {{{0, session.mode, 0, 0}}};
            afresh.insert(afresh.end(), session.steps.begin(), session.steps.end());
            outcome.again = pictures(afresh);
            outcome.single = pictures({{{0, 0, 0, 0}}, kSendPicture});
        });
    kov::host::removeLogSink(sink);
    return outcome;
}

/// What the table says of a place: calls that failed there, and how many of those wrote a line of their own.
struct Row {
    int calls = 0;
    int withLine = 0;
};

TEST(EveryFailureTest, NothingIsLeftOverAndTheModeWorksAgain) {
    std::map<std::pair<std::string, std::string>, Row> table;
    for (const Session& session : kSessions) {
        const Outcome usual = run(session, SIZE_MAX);
        ASSERT_GT(usual.again, 0) << session.name << " makes no picture";
        for (size_t failing = 0; failing < usual.sites.size(); ++failing) {
            const char* const site = usual.sites[failing];
            const Outcome outcome = run(session, failing);
            EXPECT_EQ(outcome.again, usual.again) << session.name << ", call " << failing << ": " << site;
            EXPECT_EQ(outcome.single, 1) << session.name << ", call " << failing << ": " << site;
            Row& row = table[{site, session.name}];
            ++row.calls;
            row.withLine += !std::ranges::includes(usual.lines, outcome.lines);
        }
    }
    std::set<std::string> silent;
    for (const auto& [place, row] : table) {
        const auto& [site, mode] = place;
        std::printf("%-38s %-10s %3d failures, %3d with a line\n", site.c_str(), mode.c_str(), row.calls, row.withLine);
        if (row.withLine < row.calls)
            silent.insert(site == "allocate" ? mode + " " + site : site);
    }
    EXPECT_EQ(silent, kSilent);
}

TEST(EveryFailureTest, ASmallObjectThatCannotBeHadEndsTheProcess) {
    for (const Session& session : kSessions) {
        run(session, SIZE_MAX);  // what is made once in a process is there from now on
        gNews = 0;
        run(session, SIZE_MAX);
        const size_t calls = gNews;
        for (size_t failing = 1; failing <= calls; ++failing) {
            const auto runs = [&] {
                gNews = 0;
                gFailingNew = failing;
                run(session, SIZE_MAX);
            };
            EXPECT_EXIT(runs(), ::testing::KilledBySignal(SIGABRT), "bad_alloc") << session.name << ", " << failing;
        }
        std::printf("%-38s %-10s %3zu failures, each the end\n", "operator new", session.name, calls);
    }
}

}  // namespace
