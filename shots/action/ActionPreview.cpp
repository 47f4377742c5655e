// What the application sees while a series runs: copies of the frames, with the library's guides.

#include <cstring>
#include <utility>

#include "imaging/Overlay.h"
#include "imaging/System.h"
#include "shots/Commands.h"
#include "shots/action/ShotAction.h"

namespace android {

namespace {

constexpr TaggedLog kLog(ShotAction::kTag);
constexpr int kPlaces = 3;

constexpr ax_color kGreen = 0x00FF00;
constexpr ax_color kWhite = 0xFFFFFF;
constexpr ax_color kBlack = 0x000000;

/// A rectangle round an entry: what is added to its corners, and the colour.
struct Mark {
    int left, top, right, bottom;
    ax_color color;
};

constexpr Mark kSubjectMarks[] = {{16, 24, 16, 24, kGreen}};

// The third is measured from the entry's lower right corner alone.
constexpr Mark kTakenMarks[] = {{-14, 24, 16, -26, kBlack},
                                {-12, 26, 14, -28, kWhite},
                                {12, -30, 14, -28, kWhite},
                                {-10, 28, 12, -30, kWhite},
                                {-8, 30, 10, -32, kBlack}};
constexpr int kCornerMark = 2;

int sum(int32_t coordinate, int offset) {
    int result;
    return __builtin_add_overflow(coordinate, offset, &result) ? coordinate : result;
}

}  // namespace

std::atomic<uint8_t*> ShotAction::previewHeapBase{nullptr};
std::atomic<int> ShotAction::previewRingIndex{0};

status_t ShotAction::startPreview() {
    const sp<CameraHardwareInterface> hardware = hardwareOrLog();
    if (!hardware.get())
        return NO_ERROR;
    return startPreviewAfter(hardware, [this](const CameraParameters& params) {
        const uint64_t size = uint64_t{kPlaces} * previewFrameSize(params, kLog);
        const AutoMutex held(mEngineLock);
        previewHeapBase = nullptr;
        mPreviewMemory.clear();  // holds the old heap
        mPreviewHeap.clear();
        mUnfitTold = false;
        if (size <= PTRDIFF_MAX)
            mPreviewHeap = os::newHeap(static_cast<size_t>(size));
        if (mPreviewHeap.get())
            previewHeapBase = static_cast<uint8_t*>(mPreviewHeap->base());
        else
            kLog.error("no preview heap of %llu bytes could be had", static_cast<unsigned long long>(size));
    });
}

sp<IMemoryHeap> ShotAction::getPreviewHeap() {
    kLog.debug("call getPreviewHeap");
    const AutoMutex held(mEngineLock);
    return mPreviewHeap;
}

void ShotAction::processPreviewFrame(const sp<IMemory>& data) {
    const sp<MemoryBase> copy = copyToRing(previewBytesOf(data));
    bool analyse = false;
    if (copy.get()) {
        const AutoMutex held(mEngineLock);
        mPreviewMemory = copy;
        analyse = previewFrameOf(copy, mWidth, mHeight).has_value();
    }
    // The library sees no other frames, but each of them carries out a stop that the application waits for.
    const Step step = analyse ? HandlePreview(static_cast<unsigned char*>(copy->pointer())) : StatusManager();
    if (gone(step.after))
        return;
    (void)sendData(CAMERA_MSG_PREVIEW_FRAME, copy.get() ? sp<IMemory>(copy) : data);
}

sp<MemoryBase> ShotAction::copyToRing(const RegionBytes& bytes) {
    const AutoMutex held(mEngineLock);
    if (!bytes)
        return nullptr;
    // Before startPreview there is no heap, and after an unknown format it is empty.
    if (!mPreviewHeap.get() || bytes.size > mPreviewHeap->getSize() / kPlaces) {
        if (!std::exchange(mUnfitTold, true))
            kLog.error("a preview frame of %zu bytes has no place; such frames are passed on as they are", bytes.size);
        return nullptr;
    }
    const size_t offset = static_cast<size_t>(previewRingIndex) * bytes.size;
    std::memcpy(previewHeapBase + offset, bytes.data, bytes.size);
    previewRingIndex = (previewRingIndex + 1) % kPlaces;
    return new MemoryBase(mPreviewHeap, static_cast<ssize_t>(offset), bytes.size);
}

void ShotAction::DrawOnPreviewAcquisition(OPT_API_ASImage& image) {
    const ActionShot_DisplayData data = mActionShot.displayData();
    for (int32_t i = 0; i < data.count; ++i) {
        const auto& entry = data.entries[i];
        const auto draw = [&](int32_t x, int32_t y, const Mark& mark) {
            DrawRectangle(image, sum(x, mark.left), sum(y, mark.top), sum(entry.x1, mark.right),
                          sum(entry.y1, mark.bottom), mark.color);
        };
        if (entry.kind == 0) {
            for (const Mark& mark : kSubjectMarks)
                draw(entry.x0, entry.y0, mark);
        } else if (entry.kind == 1) {
            for (int m = 0; m < static_cast<int>(std::size(kTakenMarks)); ++m)
                draw(m == kCornerMark ? entry.x1 : entry.x0, m == kCornerMark ? entry.y1 : entry.y0, kTakenMarks[m]);
        }
    }
}

AfterCall ShotAction::reportAcquisition(const Series& series, bool accepted) {
    if (accepted && gone(sendNotifyIfSet(CAMERA_MSG_ACTION_FRAME_ACCEPTED, 0, 0)))
        return AfterCall::ShotGone;
    int32_t progress;
    {
        const AutoMutex held(mEngineLock);
        if (isOver(series))
            return AfterCall::GoOn;
        progress = mActionShot.acquisitionProgress();
    }
    return sendNotifyIfSet(CAMERA_MSG_ACTION_ACQUISITION_PROGRESS, progress, 0);
}

void ShotAction::DrawRectangle(OPT_API_ASImage& image, int left, int top, int right, int bottom, ax_color color) {
    if (top == bottom || left == right)
        return;
    completePlanes(image, OverlayLayout::SemiPlanar);
    drawRectangle(overlayImage(image), OverlayLayout::SemiPlanar, left, top, right, bottom, overlayColor(color),
                  OverlayFrame::Outward2);
}

}  // namespace android
