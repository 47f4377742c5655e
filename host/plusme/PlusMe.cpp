// The C interface of the add-me engine and its instances.

#include <plusme/plusme.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <opencv2/imgproc.hpp>
#include <optional>

#include "host/plusme/Align.h"
#include "host/plusme/Matte.h"
#include "host/plusme/People.h"
#include "host/plusme/Pictures.h"
#include "host/plusme/Status.h"

namespace kov::plusme {

namespace {

constexpr int kSmallWidth = 640;
constexpr int kMatteWidth = 1280;
constexpr int kMostSide = 16384;  // pixels; areas fit an int
constexpr size_t kSlack = 4096;   // for alignment
constexpr size_t kLeastJpeg = 65536;
constexpr int kSides = 2;  // a resolution's sides are multiples of this

/// What the process was pre-initialised with, and the resolution that was set last.
struct Setup {
    std::mutex lock;
    cv::Size most;
    PME_API_Memory memory = {};
    PME_API_Encoder encoder = nullptr;
    cv::Size resolution;
};
Setup& setup() {
    static Setup* const instance = new Setup;  // used by threads that outlive static objects
    return *instance;
}

size_t jpegCapacity(cv::Size size) {
    return static_cast<size_t>(size.area()) + kLeastJpeg;
}

/// Two pictures, the JPEG, and scratch: for decoding, later for the frame and the part of the second picture.
size_t tempSize(cv::Size size) {
    return 2 * Picture::bytes(size) + jpegCapacity(size) + decodeScratch(size) + kSlack;
}

class Instance {
public:
    Instance(const PME_API_Memory& memory, PME_API_Encoder encoder) : mMemory(memory), mEncoder(encoder) {}

    Status setResolution(cv::Size picture, cv::Size preview);
    Status setTempBuffer(void* block, size_t size);
    Status startCapture();
    Status handlePreview(const PME_API_Image& image) const;
    Status handlePicture(const uint8_t* jpeg, size_t size);
    Status createStep(int32_t* progress);
    Status result(void** jpeg, long* size) const;
    void cancelCapture() {
        mPictures = 0;
        mCapturing = false;
    }

    int front = 0;

private:
    /// What lies in the temporary memory counts no longer.
    void dropSeries() {
        mConfigured = mCapturing = false;
        mPictures = 0;
        mJpegSize = 0;
    }
    void findCut();
    cv::Mat weights() const;
    void blend();
    Status compress();

    const PME_API_Memory mMemory;
    const PME_API_Encoder mEncoder;
    cv::Size mSize;
    cv::Size mPreviewSize;
    bool mConfigured = false;  // has its temporary memory
    bool mCapturing = false;

    int mPictures = 0;  // of the current pair
    Picture mPicture[2];
    cv::Matx33d mToFirst;  // from pixels of the second to pixels of the first
    int mSteps = 0;        // of the merge that are done
    Tone mTone;
    cv::Mat mTakeSecond;  // small; 255 where the second picture is to be taken

    uint8_t* mScratch = nullptr;
    uint8_t* mJpeg = nullptr;
    long mJpegSize = 0;  // 0 when there is no result
};

Status Instance::setResolution(cv::Size picture, cv::Size preview) {
    dropSeries();
    mSize = picture;
    mPreviewSize = preview;
    return Status::Good;
}

Status Instance::setTempBuffer(void* block, size_t size) {
    dropSeries();
    Arena arena(block, size);
    uint8_t* const first = arena.take(Picture::bytes(mSize));
    uint8_t* const second = arena.take(Picture::bytes(mSize));
    mJpeg = arena.take(jpegCapacity(mSize));
    mScratch = arena.take(decodeScratch(mSize));
    if (mSize.empty() || !first || !second || !mJpeg || !mScratch)
        return Status::BufferTooSmall;
    mPicture[0] = Picture(mSize, first);
    mPicture[1] = Picture(mSize, second);
    mConfigured = true;
    return Status::Good;
}

Status Instance::startCapture() {
    if (!mConfigured)
        return Status::NotReady;
    mPictures = 0;
    mJpegSize = 0;
    mCapturing = true;
    return Status::Good;
}

Status Instance::handlePreview(const PME_API_Image& image) const {
    if (!mCapturing)
        return Status::NotReady;
    const bool asSet =
        image.format == 0 && cv::Size(image.width, image.height) == mPreviewSize && image.plane[0] && image.plane[1];
    return asSet ? Status::Good : Status::WrongSize;
}

Status Instance::handlePicture(const uint8_t* jpeg, size_t size) {
    if (!mCapturing || mPictures == 2)
        return Status::NotReady;
    Picture& picture = mPicture[mPictures];
    switch (decode(jpeg, size, picture, mScratch)) {
        case Decoded::NoJpeg:
            return Status::NoJpeg;
        case Decoded::OtherSize:
            return Status::WrongSize;
        case Decoded::Good:
            break;
    }
    if (mPictures == 1) {
        const std::optional<cv::Matx33d> found = align(mPicture[0].y, mPicture[1].y);
        if (!found)
            return Status::NoMatch;
        mToFirst = *found;
    }
    ++mPictures;
    mSteps = 0;
    return Status::Good;
}

/// A matrix between pictures of one size as one between pictures that are `scale` times as large.
cv::Matx33d atScale(const cv::Matx33d& matrix, double x, double y) {
    // Pixel centres, not corners, have whole coordinates.
    const cv::Matx33d up(x, 0, (x - 1) / 2, 0, y, (y - 1) / 2, 0, 0, 1);
    return up * matrix * up.inv();
}

cv::Mat small(const Picture& picture, cv::Size size) {
    std::vector<cv::Mat> planes(3);
    cv::resize(picture.y, planes[0], size, 0, 0, cv::INTER_AREA);
    cv::resize(picture.u, planes[1], size, 0, 0, cv::INTER_AREA);
    cv::resize(picture.v, planes[2], size, 0, 0, cv::INTER_AREA);
    cv::Mat merged;
    cv::merge(planes, merged);
    return merged;
}

void Instance::findCut() {
    const int width = std::min(kSmallWidth, mSize.width);
    const cv::Size size(width, std::max(1, cvRound(double(mSize.height) * width / mSize.width)));
    const cv::Matx33d toFirst = atScale(mToFirst, double(size.width) / mSize.width, double(size.height) / mSize.height);
    const cv::Mat first = small(mPicture[0], size);
    cv::Mat second;
    cv::warpPerspective(small(mPicture[1], size), second, toFirst, size, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    cv::Mat valid;
    cv::warpPerspective(cv::Mat(size, CV_8U, cv::Scalar(255)), valid, toFirst, size, cv::INTER_LINEAR);
    cv::erode(valid == 255, valid, {}, {-1, -1}, 2, cv::BORDER_CONSTANT, cv::Scalar(255));
    mTone = matchTone(first, second, valid);
    applyTone(mTone, second);
    mTakeSecond = cut(first, second, valid, findPeople(first, second, valid, front));
}

/// Lays one plane of the second picture over the first's, by `weight`.
void layOver(cv::Mat to, const cv::Mat& second, const cv::Matx33d& toFirst, const cv::Mat& weight, cv::Rect box,
             double gain, double offset, uint8_t* memory) {
    const cv::Matx33d toBox = cv::Matx33d(1, 0, -box.x, 0, 1, -box.y, 0, 0, 1) * toFirst;
    cv::Mat straight(box.size(), CV_8U, memory);
    cv::warpPerspective(second, straight, toBox, box.size(), cv::INTER_CUBIC, cv::BORDER_REPLICATE);
    straight.convertTo(straight, -1, gain, offset);
    for (int y = 0; y < box.height; ++y) {
        uint8_t* const out = to.ptr(box.y + y, box.x);
        const uint8_t* const over = straight.ptr(y);
        const uint8_t* const share = weight.ptr(y);
        for (int x = 0; x < box.width; ++x)
            out[x] = static_cast<uint8_t>((out[x] * (255 - share[x]) + over[x] * share[x] + 127) / 255);
    }
}

/// How much of each place of the first picture is to be taken from the second: bytes, at the pictures' size.
cv::Mat Instance::weights() const {
    const int width = std::min(kMatteWidth, mSize.width);
    const cv::Size size(width, std::max(1, cvRound(double(mSize.height) * width / mSize.width)));
    cv::Mat picture = small(mPicture[front], size);
    if (front == 1) {
        const double x = double(size.width) / mSize.width, y = double(size.height) / mSize.height;
        cv::warpPerspective(picture.clone(), picture, atScale(mToFirst, x, y), size, cv::INTER_LINEAR,
                            cv::BORDER_REPLICATE);
    }
    const cv::Mat share = matte(picture, front == 1 ? mTakeSecond : ~mTakeSecond);
    cv::Mat weight;
    share.convertTo(weight, CV_8U, front == 1 ? 255 : -255, front == 1 ? 0 : 255);
    cv::resize(weight, weight, mSize, 0, 0, cv::INTER_LINEAR);
    return weight;
}

void Instance::blend() {
    if (cv::countNonZero(mTakeSecond) == 0)
        return;
    const cv::Mat weight = weights();
    cv::Rect box = cv::boundingRect(weight);
    box.width += box.x % 2 + (box.x + box.width) % 2;
    box.x -= box.x % 2;
    box.height += box.y % 2 + (box.y + box.height) % 2;
    box.y -= box.y % 2;
    const cv::Rect half(box.tl() / 2, box.size() / 2);
    cv::Mat halfWeight;
    cv::resize(weight(box), halfWeight, half.size(), 0, 0, cv::INTER_AREA);
    const cv::Matx33d halfToFirst = atScale(mToFirst, 0.5, 0.5);
    layOver(mPicture[0].y, mPicture[1].y, mToFirst, weight(box), box, mTone.gain, 0, mScratch);
    layOver(mPicture[0].u, mPicture[1].u, halfToFirst, halfWeight, half, 1, mTone.u, mScratch);
    layOver(mPicture[0].v, mPicture[1].v, halfToFirst, halfWeight, half, 1, mTone.v, mScratch);
}

Status Instance::compress() {
    mJpegSize = 0;
    toSemiPlanar(mPicture[0], mScratch, mMemory.copy);
    const int length = mEncoder(mJpeg, static_cast<unsigned>(jpegCapacity(mSize)), mScratch,
                                static_cast<unsigned>(mSize.width), static_cast<unsigned>(mSize.height));
    if (length <= 0)
        return Status::EncoderFailed;
    mJpegSize = length;
    return Status::Good;
}

/// The steps of a merge. A step that fails ends the pair, for its pictures may be changed already.
Status Instance::createStep(int32_t* progress) {
    if (mPictures != 2)
        return Status::NotReady;
    mPictures = 0;  // until the step has come to its end
    switch (mSteps++) {
        case 0:
            findCut();
            *progress = 50;
            break;
        case 1:
            blend();
            *progress = 85;
            break;
        default:
            const Status status = compress();
            if (status == Status::Good)
                *progress = 100;
            return status;
    }
    mPictures = 2;
    return Status::Good;
}

Status Instance::result(void** jpeg, long* size) const {
    if (mJpegSize == 0)
        return Status::NotReady;
    *jpeg = mJpeg;
    *size = mJpegSize;
    return Status::Good;
}

/// Runs an operation of an instance; whatever is thrown within, also by the caller's functions, becomes a status.
template <typename Operation>
int32_t run(PME_API_Instance handle, Operation operation) {
    if (!handle)
        return static_cast<int32_t>(Status::BadArgument);
    Instance& instance = *static_cast<Instance*>(handle);
    try {
        return static_cast<int32_t>(operation(instance));
    } catch (...) {
        return static_cast<int32_t>(Status::Internal);
    }
}

}  // namespace

}  // namespace kov::plusme

using namespace kov::plusme;

const char* PlusMe_GetVersion() {
    return "PlusMe host engine 1.0";
}

int32_t PlusMe_PreInitialize(int32_t picture_width, int32_t picture_height, int32_t, int32_t, int32_t,
                             const PME_API_Memory* memory, int32_t, int32_t, PME_API_Encoder encoder) {
    if (picture_width <= 0 || picture_height <= 0 || !memory || !memory->copy || !memory->fill || !encoder)
        return static_cast<int32_t>(Status::BadArgument);
    if (picture_width > kMostSide || picture_height > kMostSide)
        return static_cast<int32_t>(Status::WrongSize);
    const std::lock_guard held(setup().lock);
    setup().most = {picture_width, picture_height};
    setup().memory = *memory;
    setup().encoder = encoder;
    return static_cast<int32_t>(Status::Good);
}

size_t PlusMe_GetPermanentBufferSize() {
    const std::lock_guard held(setup().lock);
    return setup().encoder ? sizeof(Instance) + Arena::kAlignment : 0;
}

int32_t PlusMe_Initialize(PME_API_Instance* instance, void* buffer, size_t size) {
    if (!instance)
        return static_cast<int32_t>(Status::BadArgument);
    *instance = nullptr;
    const std::lock_guard held(setup().lock);
    if (!setup().encoder)
        return static_cast<int32_t>(Status::NotReady);
    uint8_t* const place = Arena(buffer, size).take(sizeof(Instance));
    if (!place)
        return static_cast<int32_t>(Status::BufferTooSmall);
    try {
        setup().memory.fill(place, 0, sizeof(Instance));
        *instance = new (place) Instance(setup().memory, setup().encoder);
        return static_cast<int32_t>(Status::Good);
    } catch (...) {
        return static_cast<int32_t>(Status::Internal);
    }
}

int32_t PlusMe_SetConfigurationParameter(PME_API_Instance instance, int32_t, int32_t) {
    return run(instance, [](Instance&) { return Status::Good; });  // this engine has nothing to configure
}

int32_t PlusMe_SetResolution(PME_API_Instance instance, int32_t picture_width, int32_t picture_height,
                             int32_t preview_width, int32_t preview_height) {
    return run(instance, [&](Instance& target) {
        const std::lock_guard held(setup().lock);
        if (picture_width <= 0 || picture_height <= 0 || picture_width % kSides || picture_height % kSides ||
            picture_width > setup().most.width || picture_height > setup().most.height)
            return Status::WrongSize;
        setup().resolution = {picture_width, picture_height};
        return target.setResolution(setup().resolution, {preview_width, preview_height});
    });
}

size_t PlusMe_GetTemporaryBufferSize() {
    const std::lock_guard held(setup().lock);
    return setup().resolution.empty() ? 0 : tempSize(setup().resolution);
}

int32_t PlusMe_SetTempBuffer(PME_API_Instance instance, void* buffer, size_t size) {
    return run(instance, [&](Instance& target) { return target.setTempBuffer(buffer, size); });
}

int32_t PlusMe_StartCapture(PME_API_Instance instance) {
    return run(instance, [](Instance& target) { return target.startCapture(); });
}

int32_t PlusMe_HandlePreview(PME_API_Instance instance, PME_API_Image* image) {
    return run(instance, [&](Instance& target) { return image ? target.handlePreview(*image) : Status::BadArgument; });
}

int32_t PlusMe_HandleSnapshotJpeg(PME_API_Instance instance, void* jpeg, unsigned long size, PME_API_Image*) {
    return run(instance,
               [&](Instance& target) { return target.handlePicture(static_cast<const uint8_t*>(jpeg), size); });
}

int32_t PlusMe_CreateResult(PME_API_Instance instance, int32_t* progress) {
    return run(instance,
               [&](Instance& target) { return progress ? target.createStep(progress) : Status::BadArgument; });
}

int32_t PlusMe_GetResultJpeg(PME_API_Instance instance, void** jpeg, long* size) {
    return run(instance,
               [&](Instance& target) { return jpeg && size ? target.result(jpeg, size) : Status::BadArgument; });
}

int32_t PlusMe_GetFirstPersonPosition(PME_API_Instance instance, int32_t* position) {
    return run(instance, [&](Instance& target) {
        if (!position)
            return Status::BadArgument;
        *position = target.front;
        return Status::Good;
    });
}

int32_t PlusMe_SwitchFirstPersonPosition(PME_API_Instance instance) {
    return run(instance, [](Instance& target) {
        target.front = 1 - target.front;
        return Status::Good;
    });
}

int32_t PlusMe_CancelCapture(PME_API_Instance instance) {
    return run(instance, [](Instance& target) {
        target.cancelCapture();
        return Status::Good;
    });
}

int32_t PlusMe_Finalize(PME_API_Instance* instance) {
    if (!instance || !*instance)
        return static_cast<int32_t>(Status::BadArgument);
    static_cast<Instance*>(*instance)->~Instance();
    *instance = nullptr;
    return static_cast<int32_t>(Status::Good);
}
