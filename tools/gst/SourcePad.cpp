// A pad of the element: a bounded queue that the camera fills, and a task that pushes what is in it.

#include "tools/gst/SourcePad.h"

#include <utility>

#include "tools/session/Error.h"

namespace kov::gst {

SourcePad::SourcePad(GstElement* element, const char* name, size_t most, Hooks hooks)
    : mElement(element),
      mPad(gst_pad_new_from_template(gst_element_get_pad_template(element, name), name)),
      mQueue(most),
      mHooks(std::move(hooks)) {
    gst_pad_set_element_private(mPad, this);
    gst_pad_set_activatemode_function(mPad, activate);
    gst_pad_set_event_function(mPad, event);
    gst_pad_set_query_function(mPad, query);
    gst_element_add_pad(element, mPad);
}

// --- What the framework calls

gboolean SourcePad::activate(GstPad* pad, GstObject*, GstPadMode mode, gboolean active) {
    SourcePad& self = of(pad);
    if (mode != GST_PAD_MODE_PUSH)
        return FALSE;
    if (!active) {
        self.mQueue.flush();
        return gst_pad_stop_task(pad);
    }
    self.mQueue.open();
    self.mBegun = self.mSegmentSent = false;
    self.mPushed = self.mDropped = self.mDroppedBefore = 0;
    return gst_pad_start_task(pad, loop, &self, nullptr);
}

/// A live source is not sought in, and drops frames by itself when what follows is late.
gboolean SourcePad::event(GstPad* pad, GstObject* parent, GstEvent* event) {
    switch (GST_EVENT_TYPE(event)) {
        case GST_EVENT_LATENCY:
        case GST_EVENT_RECONFIGURE:
            gst_event_unref(event);
            return TRUE;
        default:
            return gst_pad_event_default(pad, parent, event);
    }
}

gboolean SourcePad::query(GstPad* pad, GstObject* parent, GstQuery* query) {
    return of(pad).answer(query) || gst_pad_query_default(pad, parent, query);
}

void SourcePad::loop(gpointer self) {
    static_cast<SourcePad*>(self)->pushNext();
}

// --- The task

void SourcePad::pushNext() {
    try {
        if (!std::exchange(mBegun, true)) {
            startStream();
            begin();
        }
        BufferPtr buffer;
        switch (mQueue.pop(&buffer)) {
            case BufferQueue::Next::Flushing:
                gst_pad_pause_task(mPad);
                return;
            case BufferQueue::Next::End:
                pushEnd();
                return;
            case BufferQueue::Next::Buffer:
                break;
        }
        if (prepare(buffer.get()))
            push(std::move(buffer));
    } catch (const cam::Error& error) {
        mQueue.clear();
        mHooks.failed(error.what());
    }
}

void SourcePad::startStream() {
    if (!linked() && !mHooks.othersLinked())
        throw cam::Error("nothing is linked; link vfsrc, imgsrc or both");
    gchar* const id = gst_pad_create_stream_id(mPad, mElement, GST_PAD_NAME(mPad));
    gst_pad_push_event(mPad, gst_event_new_stream_start(id));
    g_free(id);
}

void SourcePad::setCaps(GstCaps* caps) {
    gst_pad_push_event(mPad, gst_event_new_caps(caps));
    if (std::exchange(mSegmentSent, true))
        return;
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    gst_pad_push_event(mPad, gst_event_new_segment(&segment));
}

void SourcePad::push(BufferPtr buffer) {
    if (const uint64_t dropped = mDropped; std::exchange(mDroppedBefore, dropped) != dropped)
        GST_BUFFER_FLAG_SET(buffer.get(), GST_BUFFER_FLAG_DISCONT);
    const GstFlowReturn flow = gst_pad_push(mPad, buffer.release());
    if (flow == GST_FLOW_OK) {
        if (static_cast<int64_t>(++mPushed) != mLimit)
            return;
        mQueue.end();
        mQueue.clear();
        mHooks.limitReached();
    } else if (flow == GST_FLOW_FLUSHING) {
        gst_pad_pause_task(mPad);
    } else if (flow == GST_FLOW_EOS) {
        pushEnd();
    } else if (flow != GST_FLOW_NOT_LINKED || !mHooks.othersLinked()) {
        mQueue.clear();
        mHooks.flowFailed(flow);
    }
}

void SourcePad::pushEnd() {
    mQueue.end();
    gst_pad_push_event(mPad, gst_event_new_eos());
    gst_pad_pause_task(mPad);
}

void SourcePad::give(BufferPtr buffer, uint64_t number, GstClockTime time) {
    GST_BUFFER_PTS(buffer.get()) = time;
    GST_BUFFER_OFFSET(buffer.get()) = number;
    GST_BUFFER_OFFSET_END(buffer.get()) = number + 1;
    if (!mQueue.push(std::move(buffer)))
        drop();
}

}  // namespace kov::gst
