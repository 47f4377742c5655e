// vfsrc: the preview as the application sees it.
#pragma once

#include <gst/video/video.h>

#include "tools/gst/Camera.h"
#include "tools/gst/PreviewCaps.h"
#include "tools/gst/SourcePad.h"

namespace kov::gst {

/// Sizes, formats and rates are settled with what follows, and set in the camera. Each frame is copied once, into a
/// buffer of a pool, on the camera's thread, which is never kept waiting.
class VideoPad : public SourcePad {
public:
    VideoPad(GstElement* element, Camera& camera, Hooks hooks)
        : SourcePad(element, "vfsrc", kMostWaiting, std::move(hooks)), mCamera(camera) {}

    /// The frame's time is when it began to be seen: one frame before it came.
    void frameCame(const cam::Frame& frame);
    /// Drops frames of before a pause.
    void forget() { mQueue.clear(); }

private:
    static constexpr size_t kMostWaiting = 4;

    void begin() override { negotiate(); }
    bool prepare(GstBuffer* buffer) override;
    bool answer(GstQuery* query) override;

    /// True when the caps have changed.
    bool negotiate();
    CapsPtr choose() const;
    void use(const GstVideoInfo& info, PoolPtr pool);
    GstClockTime frameTime() const;

    Camera& mCamera;
    CapsPtr mCaps;  // the task's, and while it does not run nobody's

    mutable android::Mutex mLock;  // held while a frame is copied; before the queue's
    GstVideoInfo mInfo GUARDED_BY(mLock) = {};
    PoolPtr mPool GUARDED_BY(mLock);
};

}  // namespace kov::gst
