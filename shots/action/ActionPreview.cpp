// What the application sees while a series runs: copies of the frames, with the library's guides.

#include <cstring>
#include <utility>

#include "imaging/Overlay.h"
#include "imaging/TaggedLog.h"
#include "shots/Commands.h"
#include "shots/PreviewFrame.h"
#include "shots/action/ShotAction.h"

namespace android {

namespace {

constexpr TaggedLog kLog(ShotAction::kTag);
constexpr int kPlaces = 3;
constexpr int32_t kMostEntries = 128;

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
    int result = 0;
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
        const AutoMutex held(mEngineLock);
        mPreviewHeap = new MemoryHeapBase(kPlaces * previewFrameSize(params, kLog), 0, nullptr);
        previewHeapBase = static_cast<uint8_t*>(mPreviewHeap->base());
    });
}

sp<IMemoryHeap> ShotAction::getPreviewHeap() {
    kLog.debug("call getPreviewHeap");
    const AutoMutex held(mEngineLock);
    return mPreviewHeap;
}

void ShotAction::processDataCallback(int32_t msgType, const sp<IMemory>& data) {
    if (!haveDataCallbackOrLog())
        return;
    if (msgType == CAMERA_MSG_COMPRESSED_IMAGE)
        kLog.info("CAMERA_MSG_COMPRESSED_IMAGE");
    if (msgType != CAMERA_MSG_PREVIEW_FRAME || !data.get()) {
        (void)sendData(msgType, data);
        return;
    }
    sp<MemoryBase> copy;
    bool analyse = false;
    {
        const AutoMutex held(mEngineLock);
        copy = copyToRing(data);
        analyse = copy.get() && mWidth > 0 && mHeight > 0 && data->size() >= yuv420FrameSize(mWidth, mHeight);
    }
    // The library sees no other frames, but each of them carries out a stop that the application waits for.
    if (!(analyse ? HandlePreview(static_cast<unsigned char*>(copy->pointer())) : StatusManager()))
        return;
    if (!copy.get()) {
        (void)sendData(msgType, data);
        return;
    }
    {
        const AutoMutex held(mEngineLock);
        mPreviewMemory = copy;
    }
    (void)sendData(CAMERA_MSG_PREVIEW_FRAME, copy);
}

sp<MemoryBase> ShotAction::copyToRing(const sp<IMemory>& frame) {
    if (previewRingIndex >= kPlaces)
        previewRingIndex = 0;
    const size_t size = frame->size();
    const void* const bytes = frame->pointer();
    // Before startPreview there is no heap, and after an unknown format it is empty.
    if (!mPreviewHeap.get() || !bytes || size == 0 || size > mPreviewHeap->getSize() / kPlaces)
        return nullptr;
    const size_t offset = static_cast<size_t>(previewRingIndex) * size;
    std::memcpy(static_cast<uint8_t*>(mPreviewHeap->base()) + offset, bytes, size);
    previewRingIndex = (previewRingIndex + 1) % kPlaces;
    return new MemoryBase(mPreviewHeap, static_cast<ssize_t>(offset), size);
}

void ShotAction::DrawOnPreviewAcquisition(OPT_API_ASImage& image) {
    mStopped = false;
    ActionShot_DisplayData data;
    data.count = 0;
    ActionShot_GetAcquisitionDisplayData(mActionShot, &data);
    for (int32_t i = 0; i < data.count && i < kMostEntries; ++i) {
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

/// Tells the application of a frame that was handled. False when the shot was retired meanwhile.
bool ShotAction::reportAcquisition(uint32_t series, bool accepted) {
    if (accepted && gone(sendNotifyIfSet(CAMERA_MSG_ACTION_FRAME_ACCEPTED, 0, 0)))
        return false;
    int progress = 0;
    {
        const AutoMutex held(mEngineLock);
        if (series != mSeries)
            return true;
        mProgress = ActionShot_AcquisitionProgress(mActionShot);
        progress = mProgress;
    }
    return !gone(sendNotifyIfSet(CAMERA_MSG_ACTION_ACQUISITION_PROGRESS, progress, 0));
}

void ShotAction::DrawHorizontalLine(OPT_API_ASImage& image, int y, int x0, int x1, uint8_t Y, uint8_t C1, uint8_t C2) {
    drawHorizontalLine(overlayImage(image), OverlayLayout::SemiPlanar, y, x0, x1, {Y, C1, C2});
}

void ShotAction::DrawVerticalLine(OPT_API_ASImage& image, int x, int y0, int y1, uint8_t Y, uint8_t C1, uint8_t C2) {
    drawVerticalLine(overlayImage(image), OverlayLayout::SemiPlanar, x, y0, y1, {Y, C1, C2});
}

void ShotAction::DrawRectangle(OPT_API_ASImage& image, int left, int top, int right, int bottom, ax_color color) {
    if (top == bottom || left == right)
        return;
    completePlanes(image, OverlayLayout::SemiPlanar);
    drawRectangle(overlayImage(image), OverlayLayout::SemiPlanar, left, top, right, bottom, overlayColor(color),
                  OverlayFrame::Outward2);
}

}  // namespace android
