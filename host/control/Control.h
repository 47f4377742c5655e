// What a service on the host may ask of the host beside the platform's own interfaces, and what the host tells it. Used
// by the session library (tools/session) alone; everything else goes through the adaptor. All may be called from any
// thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/runtime/Log.h"  // receiving log lines: addLogSink, removeLogSink, setLogLevel

namespace kov::host {

/// What the next opening of the vendor camera shows, as a source text; an empty one for what the environment's
/// KOV_CAMERA_SOURCE says. Forgets the frames that were pushed before.
void chooseSource(const std::string& text);

/// A picture pushed in front of a camera whose source is push:, rows without padding.
struct PushedFrame {
    enum class Format {
        Bgr,       // width x height x 3 bytes
        Yuv420sp,  // full-range 4:2:0, width x height x 3 / 2 bytes: luma, then V and U interleaved; even sides
        Yuv420p    // the same: luma, U, V
    };
    Format format;
    int width;
    int height;
    std::vector<uint8_t> bytes;
};
/// Shows a frame until the next one is pushed. Its size must be right.
void pushFrame(std::shared_ptr<const PushedFrame> frame);

/// Why the vendor camera refused the operation that this thread called last, and forgets it; or, in a
/// CAMERA_MSG_ERROR notification, why it is sent. Empty when nobody said so.
std::string takeFailure();

/// A call that the adaptor made in the vendor camera or in a closed library, when it has returned.
struct HostCall {
    std::string_view library;    // "libcamera.so"
    std::string_view name;       // "takePicture"
    std::string_view arguments;  // "width=640, height=480"
    std::string_view result;     // "0"; empty for void
    int64_t durationNs;
};
/// Called on the thread that made the call; calls of a sink never overlap. It must not call the camera.
using CallSink = std::function<void(const HostCall&)>;
/// Adds a sink; returns a number for `removeCallSink`. Calls are seen when libkovcalls.so was loaded into the global
/// scope before the adaptor was.
int addCallSink(CallSink sink);
/// After this returns the sink is not called any more. Not from within a sink.
void removeCallSink(int id);

// --- For the host's own parts

/// What `chooseSource` chose, else the environment's KOV_CAMERA_SOURCE, else an empty text.
std::string chosenSource();
/// The frame pushed last, or null.
std::shared_ptr<const PushedFrame> pushedFrame();
/// Says why the operation under way on this thread fails, or the error that is about to be notified of.
void reportFailure(const std::string& reason);
/// Whether anybody hears of calls.
bool callsAreHeard();
void reportCall(const HostCall& call);

}  // namespace kov::host
