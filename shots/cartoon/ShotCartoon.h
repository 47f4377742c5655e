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
/// Limits: frames of 4:2:0, planar or semi-planar with V first, with even sides. Others go by as they are. Pictures of
/// whatever kind of JPEG the library reads.
///
/// Threads: frames and pictures arrive on the vendor layer's threads, which render them; the effect is selected on the
/// service's. `mCapsLock` is held while a frame is rendered, and never during a message to the application. A picture
/// is rendered with objects of its own, without the lock.
class ShotCartoon : public ShotCallbacks<ShotCartoon> {
public:
    static constexpr char kTag[] = "ShotCartoon";

    /// Values of the command that selects the effect. With any other value frames and pictures are rendered as they
    /// are.
    enum Effect : int32_t { kCartoon = 0, kSketchColor = 1, kSketchGray = 2, kStamp = 3 };

    explicit ShotCartoon(sp<CameraHardwareInterface> hardware);
    ~ShotCartoon() override;

    status_t processCommand(int32_t cmd, int32_t arg1, int32_t arg2);

    void processDataCallback(int32_t msgType, const sp<IMemory>& mem);

private:
    void Init();
    void Release() REQUIRES(mCapsLock);

    void renderFrame(const sp<IMemory>& mem);
    CapsOutcome HandlePreview(int width, int height, unsigned char* src, unsigned char* dst) REQUIRES(mCapsLock);

    void processPicture(const sp<IMemory>& mem);
    AfterCall iterate(CapsIterator iterator, caps_result* last);
    sp<IMemory> copyPicture(const CapsPicture& picture);
    static uint32_t getCurrentTimeMs();

    caps_result applyEffect(cips* session) const;
    static caps_result applyEffectCartoon(cips* session);
    static caps_result applyEffectSketchColor(cips* session);
    static caps_result applyEffectSketchGray(cips* session);
    static caps_result applyEffectStamp(cips* session);

    const int32_t mCapsColorFormat = CAPS_FORMAT_YUV420_SEMIPLANAR;
    sp<MemoryHeapBase> mPictureHeap GUARDED_BY(mCapsLock);
    sp<MemoryBase> mPictureMemory GUARDED_BY(mCapsLock);  // delivered last
    std::atomic<int32_t> mEffect{kCartoon};

    bool mFailureTold GUARDED_BY(mCapsLock) = false;  // the latest frame could not be rendered
    Mutex mCapsLock;
};

}  // namespace android
