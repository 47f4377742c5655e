// Panorama: a sweep of the camera becomes one wide picture.
//
// Frames are semi-planar 4:2:0 of the preview's size as the capture began; others go by unread, with one line. The
// guide is drawn into frames of 64 x 64 pixels and more.
#pragma once

#include <atomic>
#include <optional>

#include "imaging/ArcJpegEncoder.h"
#include "shots/ShotCallbacks.h"
#include "shots/TurnLock.h"
#include "shots/panorama/PanoramaEngine.h"

namespace android {

/// Hands every preview frame of a sweep to the panorama library, marks it with a guide, stitches what was taken, and
/// delivers the result as an ordinary compressed picture.
///
/// Threads: frames arrive on the vendor layer's thread, commands on the service's; both use the library. `mEngineLock`
/// is held for each call of the library and given up for each message to the application, so that a command waits for
/// the library's work of one frame or one step. Whoever makes or frees the instance begins a new generation; a stitch
/// of an old one ends at its next step.
class ShotPanorama : public ShotCallbacks<ShotPanorama> {
public:
    static constexpr char kTag[] = "ShotPanorama";

    explicit ShotPanorama(sp<CameraHardwareInterface> hardware);
    ~ShotPanorama() override;

    status_t processCommand(int32_t cmd, int32_t arg1, int32_t arg2);
    void processDataCallback(int32_t msgType, const sp<IMemory>& data);

protected:
    /// What became of a frame.
    struct Handled {
        enum { Skipped, Analysed, Added, BufferFull } how = Skipped;
        uint32_t generation = 0;
        uint32_t adding = 0;  // the time before it was added
        px_image image = {};
        px_status status = {};  // the library's, of this frame
    };

    /// Makes a library instance for frames of this size, for what it reports ready to be added at once unless
    /// `noAutoAdd`. Ignored while such frames are being captured.
    void Init(int width, int height, bool noAutoAdd) REQUIRES(mEngineLock);
    void Free() REQUIRES(mEngineLock);
    void StartCapture() REQUIRES(mEngineLock);
    /// Drops the capture or the stitch and makes a fresh instance.
    void CancelCapture() REQUIRES(mEngineLock);
    /// Hands a preview frame to the library. With `BufferFull` the capture has to be ended.
    Handled HandlePreview(const sp<IMemory>& frame) REQUIRES(mEngineLock);
    /// The stitched image, the library's, with its size; null with -1 and -1 when there is none.
    unsigned char* GetPanoramaImage(int& width, int& height) REQUIRES(mEngineLock);

    TurnLock mEngineLock;

private:
    // A stitch, by the generation of its instance.
    using Stitch = std::optional<uint32_t>;
    enum class Step { Dropped, Failed, Taken, Done };

    Stitch startOrStop();
    Stitch endCapture() REQUIRES(mEngineLock);
    AfterCall stitch(uint32_t generation);
    Step takeStep(uint32_t generation, uint32_t begin, uint32_t* progress, std::optional<ArcJpegEncoding>* encoding);
    AfterCall deliverPanorama(ArcJpegEncoding& encoding);
    /// Fills `encoding` when the stitched image can be believed.
    void encodePanorama(std::optional<ArcJpegEncoding>* encoding) REQUIRES(mEngineLock);

    /// Nothing of a capture or a stitch is left for the next instance.
    void forgetCapture() REQUIRES(mEngineLock);
    bool stitching() const REQUIRES(mEngineLock);
    void initForPreview() REQUIRES(mEngineLock);
    bool fitsInstance() REQUIRES(mEngineLock);
    void analyse(Handled* frame) REQUIRES(mEngineLock);
    AfterCall captureFrame(const sp<IMemory>& frame);
    AfterCall tellAdded(const Handled& frame);

    bool mAutoStopArmed GUARDED_BY(mEngineLock) = false;
    bool mInstanceReady GUARDED_BY(mEngineLock) = false;
    std::atomic<bool> mCapturing{false};  // written under the lock; frames look before they wait for it
    bool mNoAutoAdd GUARDED_BY(mEngineLock) = false;
    uint32_t mProgress GUARDED_BY(mEngineLock) = 0;  // percent, written by the library
    px_status mPxStatus GUARDED_BY(mEngineLock) = {};
    int32_t mFrameWidth GUARDED_BY(mEngineLock);
    int32_t mFrameHeight GUARDED_BY(mEngineLock);
    PanoramaEngine mInstance GUARDED_BY(mEngineLock);

    bool mStitching GUARDED_BY(mEngineLock) = false;
    uint32_t mGeneration GUARDED_BY(mEngineLock) = 0;
    int32_t mStartWidth GUARDED_BY(mEngineLock);  // the preview's when the instance was made for it
    int32_t mStartHeight GUARDED_BY(mEngineLock);
    bool mToldUnfit GUARDED_BY(mEngineLock) = false;
};

}  // namespace android
