// What happened in a session, kept for those who look and for those who come later.
#pragma once

#include <utils/threads.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "tools/session/TraceLines.h"

namespace kov::live {

/// A listener that keeps the newest lines in memory. Two selections are kept apart: everything, and the "story", which
/// is what an application does and sees (calls, commands, results, messages) without preview frames. The story reaches
/// back to the last choice of a mode, so that whoever joins later can tell what state the mode is in. Any thread.
class Journal : public cam::TraceLines {
public:
    struct Line {
        uint64_t id;  // counts from 1
        bool story;
        std::string type;  // of a message, "0xA00", or of a file, "image/jpeg"; else empty
        std::string text;  // as in a trace, with the id before
    };
    using LinePtr = std::shared_ptr<const Line>;

    /// Microseconds since the journal was begun.
    int64_t nowUs() const;
    /// Begins the story anew: a mode has been chosen.
    void beginStory();
    /// Adds a line of our own.
    void add(const char* kind, const nlohmann::ordered_json& what);

    uint64_t lastId() const;
    /// Lines after that one, oldest first; of those that are gone, none.
    std::vector<LinePtr> after(uint64_t id) const;
    std::vector<LinePtr> story() const;
    /// Everything that is kept, as a trace file.
    std::string trace() const;

protected:
    void write(const char* kind, const nlohmann::ordered_json& what) override;

private:
    const int64_t mBeginNs = systemTime(SYSTEM_TIME_MONOTONIC);
    mutable android::Mutex mLock;
    uint64_t mLastId GUARDED_BY(mLock) = 0;
    std::deque<LinePtr> mAll GUARDED_BY(mLock);
    std::deque<LinePtr> mStory GUARDED_BY(mLock);
};

}  // namespace kov::live
