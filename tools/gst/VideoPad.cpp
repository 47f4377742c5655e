// vfsrc: the preview as the application sees it.

#include "tools/gst/VideoPad.h"

#include <utility>

#include "tools/gst/FrameCopy.h"
#include "tools/session/Error.h"

namespace kov::gst {

using android::AutoMutex;
using cam::Error;

namespace {

/// Without a limit: what is held downstream is never written again, and the camera's thread never waits for it.
PoolPtr makePool(GstCaps* caps, const GstVideoInfo& info) {
    PoolPtr pool(gst_video_buffer_pool_new());
    GstStructure* const config = gst_buffer_pool_get_config(pool.get());
    gst_buffer_pool_config_set_params(config, caps, static_cast<guint>(info.size), 0, 0);
    if (!gst_buffer_pool_set_config(pool.get(), config) || !gst_buffer_pool_set_active(pool.get(), TRUE))
        throw Error("there is no memory for frames; ask for smaller ones");
    return pool;
}

}  // namespace

// --- Frames, on the camera's thread

void VideoPad::frameCame(const cam::Frame& frame) {
    const GstClockTime now = runningTime();
    if (!linked() || !mQueue.isOpen())
        return;
    const AutoMutex held(mLock);
    if (!mPool || !fits(frame, mInfo))
        return;
    GstBufferPoolAcquireParams params = {};
    params.flags = GST_BUFFER_POOL_ACQUIRE_FLAG_DONTWAIT;
    GstBuffer* got = nullptr;
    if (gst_buffer_pool_acquire_buffer(mPool.get(), &got, &params) != GST_FLOW_OK)
        return drop();
    BufferPtr buffer(got);
    if (!copyFrame(frame, mInfo, got))
        return drop();
    const GstClockTime duration = gst_util_uint64_scale_int(GST_SECOND, mInfo.fps_d, mInfo.fps_n);
    GST_BUFFER_DURATION(got) = duration;
    const GstClockTime begin = GST_CLOCK_TIME_IS_VALID(now) ? now - MIN(now, duration) : now;
    give(std::move(buffer), frame.number, begin);
}

// --- Caps, on the task

bool VideoPad::prepare(GstBuffer*) {
    return !gst_pad_check_reconfigure(mPad) || !negotiate();
}

CapsPtr VideoPad::choose() const {
    const CapsPtr ours = previewCaps(mCamera.parameters());
    const CapsPtr theirs(gst_pad_peer_query_caps(mPad, ours.get()));
    CapsPtr caps = fixated(ours, theirs);
    if (!gst_caps_is_empty(caps.get()))
        return caps;
    gchar* const text = gst_caps_to_string(ours.get());
    const std::string all = text;
    g_free(text);
    throw Error("what follows vfsrc takes no size, format and rate that the camera has; it has " + all);
}

bool VideoPad::negotiate() {
    gst_pad_check_reconfigure(mPad);
    CapsPtr caps = choose();
    GstVideoInfo info;
    if (!gst_video_info_from_caps(&info, caps.get()))
        throw Error("what follows vfsrc takes no frames; link it to an element for raw video");
    const bool first = !gst_pad_has_current_caps(mPad);
    if (!first && mCaps && gst_caps_is_equal(mCaps.get(), caps.get()))
        return false;
    use(info, makePool(caps.get(), info));
    mQueue.clear();
    mCamera.configurePreview(previewParameters(info));
    setCaps(caps.get());
    mCaps = std::move(caps);
    gst_element_post_message(mElement, gst_message_new_latency(GST_OBJECT(mElement)));
    return true;
}

void VideoPad::use(const GstVideoInfo& info, PoolPtr pool) {
    const AutoMutex held(mLock);
    mInfo = info;
    mPool.swap(pool);
}

GstClockTime VideoPad::frameTime() const {
    const AutoMutex held(mLock);
    return mPool ? gst_util_uint64_scale_int(GST_SECOND, mInfo.fps_d, mInfo.fps_n) : GST_CLOCK_TIME_NONE;
}

// --- Queries

bool VideoPad::answer(GstQuery* query) {
    if (GST_QUERY_TYPE(query) == GST_QUERY_LATENCY) {
        const GstClockTime frame = frameTime();
        if (GST_CLOCK_TIME_IS_VALID(frame))
            gst_query_set_latency(query, TRUE, frame, frame * (1 + kMostWaiting));
        else
            gst_query_set_latency(query, TRUE, 0, GST_CLOCK_TIME_NONE);  // a message tells when it is known
        return true;
    }
    if (GST_QUERY_TYPE(query) != GST_QUERY_CAPS)
        return false;
    GstCaps* filter = nullptr;
    gst_query_parse_caps(query, &filter);
    try {
        CapsPtr caps = previewCaps(mCamera.parameters());
        if (filter)
            caps.reset(gst_caps_intersect_full(filter, caps.get(), GST_CAPS_INTERSECT_FIRST));
        gst_query_set_caps_result(query, caps.get());
        return true;
    } catch (const Error&) {
        return false;  // closed: the template answers
    }
}

}  // namespace kov::gst
