// Cartoon: preview and picture with a drawn look.
#pragma once

#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>
#include <caps/caps.h>

#include <atomic>

#include "imaging/Caps.h"
#include "shots/ShotCallbacks.h"

namespace android {

/// Renders every preview frame with the selected effect, in the vendor layer's own memory, and delivers pictures
/// rendered with it in place of the vendor layer's. Taking a picture is the vendor layer's ordinary operation.
///
/// Threads: frames and pictures arrive on the vendor layer's threads, which render them; the effect is selected on the
/// service's. `mCapsLock` is held while a frame is rendered, and never during a message to the application. A picture
/// is rendered with objects of its own, without the lock.
class ShotCartoon : public ShotCallbacks<ShotCartoon> {
public:
    static constexpr char kTag[] = "ShotCartoon";

    /// Values of the command that selects the effect. With any other value pictures are rendered as they are.
    enum Effect : int32_t { kCartoon = 0, kSketchColor = 1, kSketchGray = 2, kStamp = 3 };

    explicit ShotCartoon(sp<CameraHardwareInterface> hardware);
    ~ShotCartoon() override;

    status_t processCommand(int32_t cmd, int32_t arg1, int32_t arg2);

    void processDataCallback(int32_t msgType, const sp<IMemory>& mem);

    void Init();
    /// Drops the last picture and the images of the last frame.
    void Release();
    /// Renders the effect from one frame into another, both width x height x 3 / 2 bytes, semi-planar with V first. The
    /// library's images over them stay until `Release`, or the next frame: do not free the pixels before.
    void HandlePreview(int width, int height, unsigned char* src, unsigned char* dst);

    /// Each applies its effect to a session and returns the library's result, or success where that is not looked at.
    static caps_result applyEffectCartoon(cips* session);
    static caps_result applyEffectSketchColor(cips* session);
    static caps_result applyEffectSketchGray(cips* session);
    static caps_result applyEffectStamp(cips* session);

private:
    struct Picture;

    void releaseLocked() REQUIRES(mCapsLock);
    void renderFrame(const sp<IMemory>& mem);
    bool canRender(const sp<IMemory>& mem, int32_t width, int32_t height) const;
    caps_result applyEffect(cips* session) const;
    void processPicture(const sp<IMemory>& mem);
    [[nodiscard]] bool renderPicture(Picture& picture);
    bool openPicture(Picture& picture) const;
    [[nodiscard]] bool readParameters(Picture& picture);
    [[nodiscard]] bool iterate(CapsIterator iterator, int32_t* result);
    sp<IMemory> copyPicture(const caps_data& jpeg);

    const int32_t mCapsColorFormat = CAPS_FORMAT_YUV420_SEMIPLANAR;
    std::atomic<int32_t> mEffect{kCartoon};

    Mutex mCapsLock;
    CapsImage mCapsSrcImage GUARDED_BY(mCapsLock);  // over the copy of the frame that is rendered
    CapsImage mCapsDstImage GUARDED_BY(mCapsLock);  // over the vendor layer's frame
    sp<MemoryHeapBase> mPictureHeap GUARDED_BY(mCapsLock);
    sp<MemoryBase> mPictureMemory GUARDED_BY(mCapsLock);  // delivered last
};

}  // namespace android
