// Preview frames as JPEG, encoded once for all who look.
#pragma once

#include <utils/threads.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "tools/kovcam/live/Http.h"
#include "tools/session/Listener.h"

namespace kov::live {

/// Takes each frame on the camera's thread as a copy in a place that is used again, and compresses the newest on a
/// thread of its own: a frame that comes while one is being compressed takes the place of the one that waits. Nothing
/// is copied while nobody looks. Frames have the full range of values, as JPEG has, and are compressed as they are.
class PreviewEncoder : public cam::Listener {
public:
    struct Hooks {
        std::function<int64_t()> nowUs;          // the clock of a frame's times
        std::function<bool()> wanted;            // whether anybody looks; any thread
        std::function<void(LiveFramePtr)> show;  // on the encoder's thread
    };

    PreviewEncoder(Hooks hooks, int quality);
    ~PreviewEncoder() override;

    void onFrame(const cam::Frame& frame) override;

private:
    struct Copy {
        std::vector<uint8_t> bytes;
        int width = 0;
        int height = 0;
        cam::PixelLayout layout{};
        uint64_t number = 0;
        int64_t deliveredUs = 0;
    };

    void run();
    /// The frame as a packet; null when it cannot be compressed.
    LiveFramePtr encode(const Copy& frame);

    const Hooks mHooks;
    const int mQuality;
    void* const mCompressor;       // of TurboJPEG; the thread's own, as are the next two
    std::vector<uint8_t> mChroma;  // U and V apart, where they come in pairs
    std::vector<uint8_t> mJpeg;

    android::Mutex mLock;
    android::Condition mChanged;
    Copy mNext GUARDED_BY(mLock);
    bool mWaiting GUARDED_BY(mLock) = false;
    bool mStop GUARDED_BY(mLock) = false;
    std::thread mThread;
};

}  // namespace kov::live
