// What a session tells its listeners.
#pragma once

#include <camera/Camera.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kov::cam {

/// How the bytes of a 4:2:0 frame lie. Both have the full range (0 to 255), as JPEG has: luma of width x height, then
/// chroma of half the size in both directions. Yuv420sp (NV21): V and U interleaved, V first. Yuv420p: U, then V.
enum class PixelLayout { Yuv420sp, Yuv420p };

/// CAMERA_MSG_SHUTTER, CAMERA_MSG_FOCUS, CAMERA_MSG_ERROR and the modes' own notifications.
struct Notification {
    int32_t type;
    int32_t ext1;
    int32_t ext2;
    /// For CAMERA_MSG_ERROR the vendor camera's own words, where it had any; else empty.
    std::string reason;
};

/// A preview frame as the application sees it (CAMERA_MSG_PREVIEW_FRAME, with what the mode drew into it), a recording
/// frame (CAMERA_MSG_VIDEO_FRAME) or an uncompressed picture (CAMERA_MSG_RAW_IMAGE).
struct Frame {
    int32_t type;
    const uint8_t* bytes;  // valid during the callback only; null for a message without memory
    size_t size;           // width x height x 3 / 2
    int width;             // 0 with height 0 when `size` does not fit the parameters (a frame of the size before)
    int height;
    PixelLayout layout;
    uint64_t number;      // counts the messages of this type since the session was opened, from 0
    int64_t timestampNs;  // the camera's, for recording frames; 0 otherwise
};

/// A finished JPEG (CAMERA_MSG_COMPRESSED_IMAGE).
struct Picture {
    const uint8_t* bytes;  // valid during the callback only
    size_t size;           // in bytes; 0 when a mode had no picture to give
    uint64_t number;       // counts the pictures since the session was opened, from 0
};

/// Any other data message.
struct Data {
    int32_t type;
    const uint8_t* bytes;  // valid during the callback only; may be null
    size_t size;           // in bytes
};

/// A line of the platform's log. The texts are valid during the callback only.
struct LogLine {
    char priority;  // V, D, I, W, E or F
    std::string_view tag;
    std::string_view text;
};

/// An operation of the adaptor that the session is about to call, other than a command. The texts are valid during the
/// callback only.
struct Call {
    std::string_view name;  // "startPreview"
    std::string_view text;  // what was passed, or empty
};

/// A command that the session is about to send.
struct Command {
    int32_t code;
    int32_t arg1;
    int32_t arg2;
};

/// What an operation came back with. Void operations have a result too, so that one sees when they returned. The texts
/// are valid during the callback only.
struct Result {
    std::string_view name;  // as in the call; "sendCommand" for a command
    bool hasStatus;
    int32_t status;           // 0 is success; meaningless without `hasStatus`
    std::string_view reason;  // why it failed, where it did and somebody said so
};

/// A call that the adaptor made in the vendor layer or in one of the closed libraries, told when it has returned. The
/// texts are valid during the callback only.
struct InnerCall {
    std::string_view library;    // "libcamera.so"
    std::string_view name;       // "takePicture"
    std::string_view arguments;  // "width=640, height=480"; pointers are left out
    std::string_view result;     // "0"; empty for void
    int64_t durationNs;
};

/// Receives what happens in a session. A client overrides what it wants to know; every default does nothing.
///
/// Threads: messages arrive on the camera's and the modes' own threads, calls and results on the thread that uses the
/// session, log lines and inner calls on any thread. Calls of one listener may overlap; it locks what it keeps.
///
/// A callback returns quickly: while it runs, the camera's thread stands still. It must not throw. From within onFrame,
/// onPicture, onData and onNotify every operation of the session is allowed except setParameter(s), and the last
/// reference to the session may be dropped. The others (onLog, onCall, onCommand, onResult, onInnerCall) are told under
/// a lock or within another operation: they must neither use the session nor write to the log.
class Listener {
public:
    virtual ~Listener() = default;

    virtual void onNotify(const Notification&) {}
    /// A preview frame.
    virtual void onFrame(const Frame&) {}
    virtual void onPicture(const Picture&) {}
    /// An uncompressed picture, of picture size.
    virtual void onRawPicture(const Frame&) {}
    virtual void onRecordingFrame(const Frame&) {}
    virtual void onData(const Data&) {}

    virtual void onLog(const LogLine&) {}
    virtual void onCall(const Call&) {}
    virtual void onCommand(const Command&) {}
    virtual void onResult(const Result&) {}
    virtual void onInnerCall(const InnerCall&) {}
};

}  // namespace kov::cam
