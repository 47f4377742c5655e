// The binding of the face tracking and the smile detection engines.
#pragma once

#include <arccamera/face.h>

#include <cstdint>

namespace android {

/// Both engines, each absent or ready, and the records that are exchanged with them. Frames have at least
/// width x height x 3 / 2 bytes and are only read.
///
/// An initialisation answers 1, or 0 and leaves its engine absent; a detection answers a number of faces, or -1. What
/// fails writes its numbered line. One thread at a time.
class SmileEngines {
public:
    static constexpr int32_t kMostFaces = 3;

    int32_t InitFaceTracking(int32_t width, int32_t height, int32_t colorFormat, int32_t noTracking, int32_t maxFaces);
    /// `faces`: room for kMostFaces, of which as many are written as are answered.
    int32_t FaceTrackingDetect(int32_t width, int32_t height, unsigned char* frame, __tag_rect* faces);
    /// Harmless when there is no engine.
    void UnInitFaceTracking();

    /// For frames of the format that face tracking was initialised with.
    int32_t InitSmileDetection(int32_t width, int32_t height);
    /// `faces`: those of FaceTrackingDetect for the same frame. `faceInfo`: room for kMostFaces; filled here. A failure
    /// leaves the result of the last success, but with no smiles.
    int32_t SmileDetect(int32_t width, int32_t height, unsigned char* frame, __tag_rect* faces, int32_t* faceInfo,
                        int32_t faceCount);
    /// Harmless when there is no engine.
    void UnInitSmile();

    /// What was detected last. The rectangles are the engine's, `ISmileNumber` of them.
    const ASSD_SMILE_RESULT& smileResult() const { return mSmileResult; }

private:
    void* mFaceMemBlock = nullptr;
    MHandle mFaceMemMgr = nullptr;
    MHandle mFaceEngine = nullptr;
    AMFPAF_FACE_RESULT mFaceResult = {};
    AMFPAF_IMAGE_INFO mFaceImageInfo = {};
    MHandle mSmileEngine = nullptr;
    ASSD_SMILE_RESULT mSmileResult = {nullptr, 0, -1, 0};  // as many smiles as faces, or three, they are not
    ASSD_IMAGE mSmileImage = {};
    void* mSmileMemBlock = nullptr;
    MHandle mSmileMemMgr = nullptr;
};

}  // namespace android
