// An engine of the action-shot library, and the memory that it works in.
#pragma once

#include <actionshot/actionshot.h>

#include <cstdint>

namespace android {

/// Everything that is asked of the library, under its operations' own names. Without an engine the library is not
/// called: what it would do with a null handle is not known. Used by one thread at a time.
class ActionEngine {
public:
    static constexpr uint32_t kBlockSize = 460800;  // bytes: one 640 x 480 frame
    static constexpr int kTempBlocks = 15;

    /// Makes and sets up an engine for frames of this size, positive, once. False, with a line, when there is none.
    bool Init(int width, int height);
    /// Ends the engine and gives all memory back. The last thing that is asked of it.
    void Free();

    void cancelSeries();
    /// Lends the temporary memory and starts a series. False, with a line, when it could not be started.
    bool startSeries();
    bool isConnected();
    int32_t handleFrame(const OPT_API_ASImage& frame);
    /// What to show over the frame, as many entries as the record has at most.
    ActionShot_DisplayData displayData();
    int32_t acquisitionProgress();
    /// One step of making the result, which is the engine's. False when there is no further step.
    bool createResult(int32_t* progress, OPT_API_ASImage* result);

private:
    bool createTempBuffer();
    void allocateWorkMemory();

    unsigned mWorkBlockCount = 0;
    ActionShot_Handle mActionShot = nullptr;
    uint32_t mWorkMemSize = 0;
    uint8_t* mWorkMem = nullptr;
    uint8_t* mTempBuffer[kTempBlocks] = {};
    bool mTempBufferSet = false;
    uint8_t* mPreviewCopy = nullptr;  // a spare frame, which nothing reads
};

}  // namespace android
