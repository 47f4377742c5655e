// Makes a video file of the preview.
#pragma once

#include <utils/threads.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/session/Listener.h"

namespace kov::cam {

/// Takes preview frames, encodes them on a thread of its own, and keeps the time: a frame that comes late is shown
/// longer, one that comes while another waits takes its place.
class Recorder : public Listener {
public:
    ~Recorder() override;

    /// Begins. The file has the size of the next frame; frames of another size end the picture part there. Throws
    /// Error while a recording runs.
    void start(const std::string& path, double framesPerSecond);
    struct Result {
        int64_t frames = 0;               // in the file; 0 when none came or the file is not whole
        std::vector<uint8_t> firstFrame;  // a JPEG
    };
    /// Ends, and returns when the file is whole.
    Result stop();
    bool running() const;

    void onFrame(const Frame& frame) override;

private:
    class Film;
    mutable android::Mutex mLock;
    std::shared_ptr<Film> mFilm GUARDED_BY(mLock);
};

}  // namespace kov::cam
