// A pad of the element: a bounded queue that the camera fills, and a task that pushes what is in it.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "tools/gst/BufferQueue.h"
#include "tools/gst/Pointers.h"

namespace kov::gst {

/// Lives as long as the pad is in the element. The task runs while the pad is active; the hooks are called on it.
class SourcePad {
public:
    struct Hooks {
        std::function<void()> limitReached;
        std::function<bool()> othersLinked;  // whether the element is of use without this pad
        std::function<void(GstFlowReturn)> flowFailed;
        std::function<void(const std::string&)> failed;  // with what is wrong
    };

    /// Adds the pad to the element. `most`: buffers that may wait.
    SourcePad(GstElement* element, const char* name, size_t most, Hooks hooks);
    virtual ~SourcePad() = default;
    SourcePad(const SourcePad&) = delete;
    SourcePad& operator=(const SourcePad&) = delete;

    bool linked() const { return gst_pad_is_linked(mPad); }
    void setPlaying(bool playing) { mQueue.setPlaying(playing); }
    /// Before the pad is activated. After so many buffers comes the end; below 0 without one.
    void setLimit(int64_t limit) { mLimit = limit; }
    /// Sends the end of the stream after what waits.
    void end() { mQueue.end(); }
    uint64_t pushed() const { return mPushed; }
    uint64_t dropped() const { return mDropped; }

protected:
    /// Before the first buffer, on the task. Both throw cam::Error when the stream cannot go on.
    virtual void begin() {}
    /// Before each buffer, on the task. False when it is not to be pushed.
    virtual bool prepare(GstBuffer* buffer) = 0;
    virtual bool answer(GstQuery* query) = 0;

    /// Adds to the stream, the time and the number set. Any thread.
    void give(BufferPtr buffer, uint64_t number, GstClockTime time);
    void drop() { ++mDropped; }
    /// Tells what follows in the format of buffers from now on; on the task.
    void setCaps(GstCaps* caps);
    /// The pipeline's time since it began to play; none without a clock.
    GstClockTime runningTime() const { return gst_element_get_current_running_time(mElement); }

    GstElement* const mElement;  // not held: it holds the pad
    GstPad* const mPad;          // the element's
    BufferQueue mQueue;

private:
    static SourcePad& of(GstPad* pad) { return *static_cast<SourcePad*>(gst_pad_get_element_private(pad)); }
    static gboolean activate(GstPad* pad, GstObject* parent, GstPadMode mode, gboolean active);
    static gboolean event(GstPad* pad, GstObject* parent, GstEvent* event);
    static gboolean query(GstPad* pad, GstObject* parent, GstQuery* query);
    static void loop(gpointer self);

    void startStream();
    void pushNext();
    void push(BufferPtr buffer);
    void pushEnd();

    const Hooks mHooks;
    std::atomic<int64_t> mLimit{-1};
    std::atomic<uint64_t> mPushed{0};
    std::atomic<uint64_t> mDropped{0};
    // The task's, and while it does not run the activating thread's.
    bool mBegun = false;
    bool mSegmentSent = false;
    uint64_t mDroppedBefore = 0;
};

}  // namespace kov::gst
