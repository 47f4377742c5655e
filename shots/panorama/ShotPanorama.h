// Panorama: a sweep of the camera becomes one wide picture.
#pragma once

#include <atomic>
#include <optional>

#include "imaging/ArcJpegEncoder.h"
#include "shots/ShotCallbacks.h"
#include "shots/panorama/PanoramaGuide.h"

namespace android {

/// Hands every preview frame of a sweep to the panorama library, marks it with a guide, stitches what was taken, and
/// delivers the result as an ordinary compressed picture.
///
/// Threads: frames arrive on the vendor layer's thread, commands on the service's; both use the library. `mEngineLock`
/// is held for each call of the library and given up for each message to the application. A capture that was cancelled
/// or begun anew while its stitch was sending a message ends there (`mGeneration` tells).
class ShotPanorama : public ShotCallbacks<ShotPanorama> {
public:
    static constexpr char kTag[] = "ShotPanorama";

    explicit ShotPanorama(sp<CameraHardwareInterface> hardware);
    ~ShotPanorama() override;

    status_t processCommand(int32_t cmd, int32_t arg1, int32_t arg2);

    void processDataCallback(int32_t msgType, const sp<IMemory>& data);

    /// Makes a library instance for frames of this size. Ignored while such frames are being captured.
    void Init(int width, int height, bool noAutoAdd);
    void StartCapture();
    /// Ends the capture, stitches, delivers the picture. False when the shot was retired meanwhile. Does nothing while
    /// a stitch is under way.
    [[nodiscard]] bool StopCapture();
    /// Drops the capture or the stitch and makes a fresh instance.
    void CancelCapture();
    void Free();

    /// Looks at one preview frame of `bytes` bytes, and marks it when `draw` is set. A frame of another size than the
    /// instance's (the preview size was changed) goes by unread. False when the shot was retired meanwhile.
    [[nodiscard]] bool HandlePreview(unsigned char* frame, size_t bytes, bool draw);
    /// The stitched image, the library's, with its size; null with -1 and -1 when there is none.
    unsigned char* GetPanoramaImage(int& width, int& height);

    void GetRectToDraw(int& left, int& top, int& right, int& bottom) const REQUIRES(mEngineLock);
    px_color GetRectColor() const REQUIRES(mEngineLock);
    px_direction GetArrows() const REQUIRES(mEngineLock);
    Mutex& engineLock() const RETURN_CAPABILITY(mEngineLock) { return mEngineLock; }

    static void DrawHorizontalLine(px_image& image, int y, int x0, int x1, uint8_t Y, uint8_t C1, uint8_t C2);
    static void DrawVerticalLine(px_image& image, int x, int y0, int y1, uint8_t Y, uint8_t C1, uint8_t C2);
    static void DrawRectangle(px_image& image, int left, int top, int right, int bottom, px_color color);
    static void DrawHorizontalLineMixed(px_image& image, int y, int x0, int length, uint8_t Y, uint8_t C1, uint8_t C2,
                                        int alpha);
    static void DrawFadingArrows(px_image& image, px_direction code) { drawFadingArrows(image, code); }

private:
    /// What became of a frame.
    enum class Handled { Skipped, Analysed, Added, BufferFull };

    void initLocked(int width, int height, bool noAutoAdd) REQUIRES(mEngineLock);
    bool openInstance(int width, int height) REQUIRES(mEngineLock);
    void freeLocked() REQUIRES(mEngineLock);
    bool endCapture() REQUIRES(mEngineLock);
    bool fitsInstance(size_t bytes) const REQUIRES(mEngineLock);
    px_image describe(unsigned char* frame) const REQUIRES(mEngineLock);
    Handled analyse(px_image& image, uint32_t* adding) REQUIRES(mEngineLock);
    void drawGuide(px_image& image) REQUIRES(mEngineLock);
    unsigned char* panoramaImageLocked(int& width, int& height) REQUIRES(mEngineLock);
    bool stitch(uint32_t generation);
    bool deliverPanorama(uint32_t generation);
    void encodePanorama(uint32_t generation, std::optional<ArcJpegEncoding>& encoding);

    bool mAutoStopArmed GUARDED_BY(mEngineLock) = false;
    bool mInstanceReady GUARDED_BY(mEngineLock) = false;
    std::atomic<bool> mCapturing{false};
    std::atomic<bool> mCancelRequested{false};  // set before the lock is waited for
    bool mImageReady GUARDED_BY(mEngineLock) = false;
    bool mNoAutoAdd GUARDED_BY(mEngineLock) = false;
    uint32_t mProgress GUARDED_BY(mEngineLock) = 0;  // percent, written by the library
    px_status mPxStatus GUARDED_BY(mEngineLock) = {};
    int32_t mFrameWidth GUARDED_BY(mEngineLock);
    int32_t mFrameHeight GUARDED_BY(mEngineLock);
    px_instance mInstance GUARDED_BY(mEngineLock) = nullptr;

    mutable Mutex mEngineLock;
    bool mStitching GUARDED_BY(mEngineLock) = false;
    uint32_t mGeneration GUARDED_BY(mEngineLock) = 0;  // counts the instances that were freed
};

}  // namespace android
