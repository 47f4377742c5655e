// The camera that the page shows: one session at a time, and what a camera application does around it.
#pragma once

#include <utils/threads.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "tools/kovcam/Recorder.h"
#include "tools/kovcam/live/Album.h"
#include "tools/kovcam/live/Journal.h"
#include "tools/kovcam/live/PreviewEncoder.h"
#include "tools/session/Session.h"
#include "tools/session/Trace.h"

namespace kov::live {

/// Does everything through a session of the adaptor. Beyond what it is told it does three things by itself, as an
/// application would: it starts the preview again when a picture has stopped it, it takes the picture when the smile
/// mode says that it is time, and it sends the command that a client left for the case that it goes away.
///
/// Operations wait for the adaptor and throw kov::cam::Error; they belong to one thread, but for `sendCommand`, which
/// any thread may use while another operation is under way. Messages arrive on the camera's threads.
class Camera {
public:
    struct Options {
        std::map<std::string, std::string> parameters;
        std::string folder;
        std::string trace;  // a file, or empty
        int mode = 0;
        int previewQuality = 80;
    };
    struct Hooks {
        std::function<bool()> wanted;            // whether anybody looks
        std::function<void(LiveFramePtr)> show;  // a frame to show
        std::function<void(Album::ItemPtr)> added;
        std::function<void(int)> removed;
        /// Do this on the thread of the operations, soon. Called on any thread.
        std::function<void(std::function<void()>)> later;
    };

    Camera(Options options, Hooks hooks);
    ~Camera();

    /// Opens a source, in the mode and with the parameters that were chosen. When it fails, the source before is opened
    /// again. `description` tells of the source in the state.
    void open(const std::string& source, nlohmann::ordered_json description);
    void selectMode(int32_t code);
    void takePicture();
    void focus();
    void setPreview(bool on);
    void setParameters(const std::map<std::string, std::string>& values);
    void setRecording(bool on);
    /// `client` and `ifLost`: when that client goes away before another command is sent, `ifLost` is sent.
    int32_t sendCommand(int32_t code, int32_t arg1, int32_t arg2, int client = 0, int32_t ifLost = 0);
    void clientLost(int client);
    /// A frame of a client's own camera, for a source "push:".
    void pushJpeg(const std::string& jpeg);
    /// Looks whether a picture that was asked for is overdue. Called about once a second.
    void tick();
    /// Tells people, on the page and where we were started, of what went wrong. Any thread.
    void tell(const std::string& problem);
    /// Ends what runs so that its pictures come, and gives the camera back. Throws when the trace cannot be written.
    void finish();

    nlohmann::ordered_json state() const;
    /// Counts the changes of the state. Any thread.
    uint64_t revision() const { return mRevision; }
    Journal& journal() { return *mJournal; }
    Album& album() { return mAlbum; }

private:
    class Messages;
    /// Where a picture stands that was asked for. One that came still waits for the preview to start again, which is an
    /// operation as any other.
    enum class Taking { Nothing, Asked, Came };

    std::shared_ptr<cam::Session> session() const;
    void openSession(const std::string& source);
    void closeSession();
    void startAgain();
    void readParameters();
    void pictureCame(const cam::Picture& picture);
    void notified(const cam::Notification& notification);
    void logged(const cam::LogLine& line);
    void saved(Album::ItemPtr item);
    std::vector<std::string> recentStory() const;

    const Options mOptions;
    const Hooks mHooks;
    const std::shared_ptr<Journal> mJournal;
    const std::shared_ptr<PreviewEncoder> mEncoder;
    const std::shared_ptr<cam::Recorder> mRecorder;
    const std::shared_ptr<cam::Trace> mTrace;  // null without a file
    const std::shared_ptr<Messages> mMessages;
    Album mAlbum;
    std::atomic<uint64_t> mRevision{1};

    mutable android::Mutex mLock;
    std::shared_ptr<cam::Session> mSession GUARDED_BY(mLock);
    std::string mSource GUARDED_BY(mLock);
    nlohmann::ordered_json mDescription GUARDED_BY(mLock);
    std::string mClosedBecause GUARDED_BY(mLock);
    int32_t mMode GUARDED_BY(mLock);
    bool mPreview GUARDED_BY(mLock) = true;  // wanted; a picture stops it for a while
    Taking mTaking GUARDED_BY(mLock) = Taking::Nothing;
    int64_t mNewsUs GUARDED_BY(mLock) = 0;                             // when the mode was last heard of
    std::map<std::string, std::string> mChosen GUARDED_BY(mLock);      // parameters for the next session too
    std::map<std::string, std::string> mParameters GUARDED_BY(mLock);  // as the camera told them last
    std::string mRecording GUARDED_BY(mLock);                          // path of the file, empty without one
    double mRecordingSince GUARDED_BY(mLock) = 0;
    std::string mSmileEngine GUARDED_BY(mLock);  // which, and how to get a better one, in the log's words
    int mHolder GUARDED_BY(mLock) = 0;           // the client that left a command for the case that it goes away
    int32_t mIfLost GUARDED_BY(mLock) = 0;
};

}  // namespace kov::live
