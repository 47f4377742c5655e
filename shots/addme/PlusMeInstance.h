// An instance of the add-me library, and the memory that it works in.
#pragma once

#include <plusme/plusme.h>

#include <cstddef>
#include <cstdint>

namespace android {

/// Everything that is asked of the library. Without an instance it is not called, as what it would do with a null
/// handle is not known; the status is `kNone` then. Used by one thread at a time.
class PlusMeInstance {
public:
    static constexpr int32_t kNone = -1;

    /// Makes and sets up an instance; there is none before. False, with a line, when that failed; then there is none,
    /// or for want of temporary memory one that refuses pictures.
    bool Init(int32_t pictureWidth, int32_t pictureHeight, int32_t previewWidth, int32_t previewHeight);
    /// Ends the instance and gives its memory back; nothing when there is none. Its owner ends the last one too.
    void Free();
    explicit operator bool() const { return mInstance != nullptr; }

    // Each gives the library's status, 0 for success.
    int32_t startCapture();
    int32_t cancelCapture();
    int32_t handlePreview(PME_API_TimedImage& frame);
    int32_t handleSnapshotJpeg(void* jpeg, unsigned long size, PME_API_Image* image);
    int32_t createResult(int32_t* progress);
    int32_t getResultJpeg(void** jpeg, long* size);
    int32_t getFirstPersonPosition(int32_t* position);
    int32_t switchFirstPersonPosition();

private:
    bool open();
    bool giveTempBuffer();

    PME_API_Instance mInstance = nullptr;
    void* mPermanentBuffer = nullptr;
    void* mTempBuffer = nullptr;
};

}  // namespace android
