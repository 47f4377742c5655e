// What happened in a session, kept for those who look and for those who come later.

#include "tools/kovcam/live/Journal.h"

#include <camera/Camera.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

#include "tools/session/Names.h"

namespace kov::live {

using android::AutoMutex;
using Json = nlohmann::ordered_json;

namespace {

// About a minute of everything, and any story that a person could tell.
constexpr size_t kMostLines = 20000;
constexpr size_t kMostStory = 2000;

bool belongsToStory(std::string_view kind, const Json& what) {
    static const std::string frame = cam::hex(android::CAMERA_MSG_PREVIEW_FRAME);
    return kind != "log" && kind != "inner" && (kind != "data" || what.value("type", "") != frame);
}

/// The text without the id that stands before the rest.
std::string withoutId(const std::string& text) {
    return "{" + text.substr(text.find(',') + 1);
}

}  // namespace

int64_t Journal::nowUs() const {
    return (systemTime(SYSTEM_TIME_MONOTONIC) - mBeginNs) / 1000;
}

void Journal::write(const char* kind, const Json& what) {
    auto line = std::make_shared<Line>();
    line->story = belongsToStory(kind, what);
    line->type = what.value("type", "");
    const AutoMutex held(mLock);
    line->id = ++mLastId;
    line->text = "{\"id\":" + std::to_string(line->id) + "," +
                 cam::traceLine(systemTime(SYSTEM_TIME_MONOTONIC) - mBeginNs, kind, what).substr(1);
    mAll.push_back(line);
    if (mAll.size() > kMostLines)
        mAll.pop_front();
    if (!line->story)
        return;
    mStory.push_back(std::move(line));
    if (mStory.size() > kMostStory)
        mStory.pop_front();
}

void Journal::add(const char* kind, const Json& what) {
    write(kind, what);
}

void Journal::beginStory() {
    const AutoMutex held(mLock);
    mStory.clear();
}

uint64_t Journal::lastId() const {
    const AutoMutex held(mLock);
    return mLastId;
}

std::vector<Journal::LinePtr> Journal::after(uint64_t id) const {
    const AutoMutex held(mLock);
    const auto first = std::ranges::upper_bound(mAll, id, {}, [](const LinePtr& line) { return line->id; });
    return {first, mAll.end()};
}

std::vector<Journal::LinePtr> Journal::story() const {
    const AutoMutex held(mLock);
    return {mStory.begin(), mStory.end()};
}

std::string Journal::trace() const {
    std::string text;
    for (const LinePtr& line : after(0))
        text += withoutId(line->text) + "\n";
    return text;
}

}  // namespace kov::live
