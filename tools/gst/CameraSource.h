// The element's working part: the camera, the two pads, and what is told on the bus.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <memory>
#include <string>

#include "tools/Lane.h"
#include "tools/gst/Camera.h"
#include "tools/gst/Messages.h"
#include "tools/gst/PicturePad.h"
#include "tools/gst/Settings.h"
#include "tools/gst/VideoPad.h"

namespace kov::gst {

/// Made and destroyed with the element. The camera is open from READY on; it runs in PLAYING.
///
/// Messages are posted by a thread of their own: log lines come from within operations and under locks, where whoever
/// listens on the bus must not be called.
class CameraSource {
public:
    explicit CameraSource(GstElement* element);

    using Chain = GstStateChangeReturn (*)(GstElement*, GstStateChange);
    /// `chain` is the base class's.
    GstStateChangeReturn changeState(GstStateChange change, Chain chain);
    /// Handles the end of the stream; false for other events.
    bool sendEvent(GstEvent* event);

    void set(guint property, const GValue* value);
    void get(guint property, GValue* value) const;

    void startCapture() { mCamera.startCapture(); }
    void stopCapture() { mCamera.stopCapture(); }
    /// The camera's answer; -1 after a warning when there is no camera.
    int command(int code, int arg1, int arg2);

private:
    class Ears;

    SourcePad::Hooks padHooks(std::function<bool()> othersLinked);
    bool open();
    void close();
    void prepare();
    bool play(bool playing);
    void apply(guint property);
    GstStructure* stats() const;

    /// Ends the stream; a capture under way may give its pictures first.
    void finish();
    void endPictures();
    void fail(GstFlowReturn flow);
    void fail(const std::string& reason);
    void warn(const std::string& reason);
    void post(MessagePtr message);
    void later(std::function<void()> work);

    GstElement* const mElement;  // not held: it holds this
    Camera mCamera;
    VideoPad mVideo;
    PicturePad mPictures;
    std::atomic<bool> mEnding{false};

    android::Mutex mPicturesLock;  // held from a capture's last message until its picture is in the pad's queue

    mutable android::Mutex mLock;  // a leaf
    Settings mSettings GUARDED_BY(mLock);
    std::unique_ptr<Lane> mNews GUARDED_BY(mLock);
};

}  // namespace kov::gst
