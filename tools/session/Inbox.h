// Waiting for messages.
#pragma once

#include <utils/threads.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <string>

#include "tools/session/Listener.h"

namespace kov::cam {

/// One message, without its bytes.
struct Message {
    enum class Kind { Notify, Data } kind;
    int32_t type;
    int32_t ext1 = 0;
    int32_t ext2 = 0;
    size_t size = 0;     // of the data, in bytes
    std::string reason;  // of an error notification
};

/// A listener that keeps messages in their order until they are looked at. Messages come on any thread; one thread
/// waits.
class Inbox : public Listener {
public:
    /// Takes the next message, waiting for it at most `seconds`. False when none came.
    bool next(Message* message, double seconds);
    /// Ends a wait that is under way, and each that comes, with false, until `resume`. Any thread; safe to call from a
    /// thread that waits for signals.
    void interrupt();
    void resume();
    bool interrupted() const;

    void onNotify(const Notification& notification) override;
    void onFrame(const Frame& frame) override;
    void onPicture(const Picture& picture) override;
    void onRawPicture(const Frame& frame) override;
    void onData(const Data& data) override;

private:
    void add(Message message);

    mutable android::Mutex mLock;
    android::Condition mArrived;
    std::deque<Message> mMessages GUARDED_BY(mLock);
    bool mInterrupted GUARDED_BY(mLock) = false;
};

}  // namespace kov::cam
