// libPanoraMax1.so: follows a sweep of the camera and stitches the frames taken on the way.

#include <panoramax/panoramax.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <new>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <utility>
#include <vector>

#include "host/panoramax/MotionMeter.h"
#include "host/panoramax/Stitch.h"

namespace kov::panorama {

namespace {

enum Result : int32_t {
    kOk = 0,
    kBadArgument = 1,
    kOutOfMemory = 2,
    kWrongState = 3,
    kNothingAdded = 4,
    kNoMatch = 5,
    kAborted = 6,
    kNotMoved = 7,
};

constexpr int32_t kLeastSide = 64;
constexpr int32_t kMostSide = 4096;
constexpr double kStride = 0.45;       // of the frame, between frames that are added
constexpr double kClearMotion = 0.03;  // of the frame, to tell the direction
constexpr double kLeastSweep = 0.1;    // of the frame, that makes a panorama of two frames
constexpr uint32_t kLost = 0, kFollowing = 1, kReady = 2, kBeingAdded = 3;
constexpr int32_t kRight = 1, kLeft = 2, kUp = 4, kDown = 8;

/// The allocator that the library was given, within a budget.
class Pool {
public:
    explicit Pool(const px_allocator& allocator) : mAllocator(allocator) {}

    void setBudget(size_t bytes) { mBudget = bytes; }
    /// Null when there is no more, or when it would be above the budget.
    uint8_t* allocate(size_t bytes) {
        if (bytes > mBudget || mUsed > mBudget - bytes)
            return nullptr;
        auto* memory = static_cast<uint8_t*>(mAllocator.allocate(bytes));
        if (memory)
            mUsed += bytes;
        return memory;
    }
    void release(uint8_t* memory, size_t bytes) {
        if (!memory)
            return;
        mAllocator.release(memory);
        mUsed -= bytes;
    }

private:
    const px_allocator mAllocator;
    size_t mBudget = 0;
    size_t mUsed = 0;
};

/// Memory of the pool, one owner.
class Block {
public:
    Block() = default;
    Block(Pool& pool, size_t bytes) : mPool(&pool), mMemory(pool.allocate(bytes)), mBytes(bytes) {}
    Block(Block&& other) noexcept
        : mPool(other.mPool), mMemory(std::exchange(other.mMemory, nullptr)), mBytes(other.mBytes) {}
    Block& operator=(Block&& other) noexcept {
        std::swap(mPool, other.mPool);
        std::swap(mMemory, other.mMemory);
        std::swap(mBytes, other.mBytes);
        return *this;
    }
    ~Block() {
        if (mPool)
            mPool->release(mMemory, mBytes);
    }
    uint8_t* get() const { return mMemory; }

private:
    Pool* mPool = nullptr;
    uint8_t* mMemory = nullptr;
    size_t mBytes = 0;
};

/// A frame that was added.
struct Added {
    Block memory;
    cv::Point2d offset;  // from the one before
};

}  // namespace

class Instance {
public:
    explicit Instance(const px_allocator& allocator) : mAllocator(allocator), mPool(allocator) {}

    const px_allocator& allocator() const { return mAllocator; }
    Result setParams(int32_t width, int32_t height, int32_t maxFrames, int32_t budget);
    Result start();
    Result beginCapture();
    Result handleFrame(const px_image& frame, px_status* status);
    Result addFrame(const px_image& frame, px_status* status);
    Result endCapture();
    Result createPanorama(uint32_t* progress);
    Result getImage(px_image* image) const;
    void abort();

private:
    enum class State { Made, Ready, Capturing, Ended, Done, Aborted };

    bool fits(const px_image& frame) const {
        return frame.width == mSize.width && frame.height == mSize.height && frame.plane[0] && frame.plane[1];
    }
    size_t frameBytes() const { return static_cast<size_t>(mSize.area()) * 3 / 2; }
    bool sideways() const { return mDirection != kUp && mDirection != kDown; }
    void forget();
    void findDirection();
    double advance() const;
    Block copyOf(const px_image& frame);
    void report(px_status* status, uint32_t code) const;
    Result keep(const cv::Mat& picture);

    const px_allocator mAllocator;
    Pool mPool;
    State mState = State::Made;
    cv::Size mSize;
    size_t mMaxFrames = 0;

    std::unique_ptr<MotionMeter> mMeter;
    cv::Point2d mOffset;  // from the frame added last
    int32_t mDirection = 0;
    std::vector<Added> mFrames;
    Added mEnd;  // the frame followed last

    std::unique_ptr<Stitch> mStitch;
    int mStepsDone = 0;
    Block mImage;
    cv::Size mImageSize;
};

Result Instance::setParams(int32_t width, int32_t height, int32_t maxFrames, int32_t budget) {
    if (width < kLeastSide || height < kLeastSide || width > kMostSide || height > kMostSide || width % 2 ||
        height % 2 || maxFrames < 1 || budget <= 0)
        return kBadArgument;
    forget();  // what was captured has another size
    mState = State::Made;
    mSize = {width, height};
    mMaxFrames = static_cast<size_t>(maxFrames);
    mPool.setBudget(static_cast<size_t>(budget));
    return kOk;
}

Result Instance::start() {
    if (mSize.empty())
        return kWrongState;
    forget();
    mState = State::Ready;
    return kOk;
}

/// Drops what was captured and made of it.
void Instance::forget() {
    mStitch.reset();  // it looks at the frames
    mMeter.reset();
    mFrames.clear();
    mEnd = {};
    mImage = Block();
    mOffset = {};
    mDirection = 0;
}

Result Instance::beginCapture() {
    if (mState == State::Made || mState == State::Aborted)
        return kWrongState;
    forget();
    mMeter = std::make_unique<MotionMeter>(mSize);
    mState = State::Capturing;
    return kOk;
}

/// The clear motion until the second frame is added is the sweep's direction.
void Instance::findDirection() {
    const double x = std::abs(mOffset.x) / mSize.width;
    const double y = std::abs(mOffset.y) / mSize.height;
    if (mFrames.size() > 1 || std::max(x, y) < kClearMotion)
        return;
    if (x >= y)
        mDirection = mOffset.x > 0 ? kRight : kLeft;
    else
        mDirection = mOffset.y > 0 ? kDown : kUp;
}

/// How far along the sweep the camera is from the frame added last, in parts of a frame.
double Instance::advance() const {
    switch (mDirection) {
        case kRight:
            return mOffset.x / mSize.width;
        case kLeft:
            return -mOffset.x / mSize.width;
        case kDown:
            return mOffset.y / mSize.height;
        case kUp:
            return -mOffset.y / mSize.height;
        default:
            return 0;
    }
}

/// Empty when there is no memory for it.
Block Instance::copyOf(const px_image& frame) {
    Block copy(mPool, frameBytes());
    if (!copy.get())
        return copy;
    const size_t luma = static_cast<size_t>(mSize.area());
    std::memcpy(copy.get(), frame.plane[0], luma);
    std::memcpy(copy.get() + luma, frame.plane[1], luma / 2);
    return copy;
}

void Instance::report(px_status* status, uint32_t code) const {
    status->max_frames = static_cast<uint32_t>(mMaxFrames);
    status->frame_count = static_cast<uint32_t>(mFrames.size());
    status->direction = mDirection;
    status->dx = cvRound(mOffset.x);
    status->dy = cvRound(mOffset.y);
    status->status = code;
}

Result Instance::handleFrame(const px_image& frame, px_status* status) {
    if (!fits(frame) || !status)
        return kBadArgument;
    if (mState != State::Capturing)
        return kWrongState;
    const Motion motion = mMeter->follow(cv::Mat(mSize, CV_8U, frame.plane[0]));
    if (motion.confidence < kLeastConfidence) {
        report(status, kLost);
        return kOk;
    }
    mOffset = motion.offset;
    findDirection();
    mEnd = {};  // gives its memory back before the next one takes it
    if (!mFrames.empty() && mFrames.size() < mMaxFrames &&
        advance() >= (mFrames.size() == 1 ? kLeastSweep : kClearMotion))
        mEnd = {copyOf(frame), mOffset};
    report(status, mFrames.empty() || advance() >= kStride ? kReady : kFollowing);
    return kOk;
}

Result Instance::addFrame(const px_image& frame, px_status* status) {
    if (!fits(frame) || !status)
        return kBadArgument;
    if (mState != State::Capturing || mFrames.size() >= mMaxFrames)
        return kWrongState;
    mEnd = {};
    Block memory = copyOf(frame);
    if (!memory.get())
        return kOutOfMemory;
    mFrames.push_back({std::move(memory), mOffset});
    mOffset = {};
    mMeter->mark();
    report(status, kBeingAdded);
    return kOk;
}

Result Instance::endCapture() {
    if (mState != State::Capturing)
        return kWrongState;
    // What the camera saw last belongs to the sweep, also where it is less than a stride from the frame before.
    if (mEnd.memory.get())
        mFrames.push_back(std::exchange(mEnd, {}));
    mMeter.reset();
    mState = State::Ended;
    return mFrames.empty() ? kNothingAdded : kOk;
}

Result Instance::createPanorama(uint32_t* progress) {
    if (!progress)
        return kBadArgument;
    if (mState == State::Aborted)
        return kAborted;
    if (mState != State::Ended)
        return kWrongState;
    if (mFrames.size() < 2)
        return kNotMoved;
    if (!mStitch) {
        std::vector<PlacedFrame> placed;
        for (const Added& frame : mFrames)
            placed.push_back({cv::Mat(mSize.height * 3 / 2, mSize.width, CV_8U, frame.memory.get()), frame.offset});
        mStitch = std::make_unique<Stitch>(placed, sideways());
        mStepsDone = 0;
    }
    if (!mStitch->step())
        return kNoMatch;
    ++mStepsDone;
    if (const int left = mStitch->left(); left > 0) {
        *progress = static_cast<uint32_t>(100 * mStepsDone / (mStepsDone + left + 1));
        return kOk;
    }
    const Result result = keep(mStitch->result());
    mStitch.reset();
    if (result == kOk)
        *progress = 100;
    return result;
}

/// Puts the result into memory of the pool, semi-planar with V first.
Result Instance::keep(const cv::Mat& picture) {
    mImageSize = picture.size();
    const size_t luma = static_cast<size_t>(mImageSize.area());
    mImage = Block(mPool, luma * 3 / 2);
    if (!mImage.get())
        return kOutOfMemory;
    cv::Mat lumaPlane(mImageSize, CV_8U, mImage.get());
    cv::extractChannel(picture, lumaPlane, 0);
    cv::Mat pairs(picture.size(), CV_8UC2);
    const int order[] = {1, 0, 2, 1};
    cv::mixChannels(&picture, 1, &pairs, 1, order, 2);
    cv::Mat chroma(mImageSize / 2, CV_8UC2, mImage.get() + luma);
    cv::resize(pairs, chroma, chroma.size(), 0, 0, cv::INTER_AREA);
    mState = State::Done;
    return kOk;
}

Result Instance::getImage(px_image* image) const {
    if (!image)
        return kBadArgument;
    if (mState != State::Done)
        return kWrongState;
    *image = {};
    image->width = mImageSize.width;
    image->height = mImageSize.height;
    image->plane[0] = mImage.get();
    image->plane[1] = mImage.get() + static_cast<size_t>(mImageSize.area());
    return kOk;
}

void Instance::abort() {
    mStitch.reset();
    mState = State::Aborted;
}

namespace {

/// Calls into an instance. Nothing is thrown out of the library.
template <typename Call>
int32_t guarded(px_instance instance, Call call) {
    if (!instance)
        return kBadArgument;
    try {
        return call(*static_cast<Instance*>(instance));
    } catch (const std::bad_alloc&) {
        return kOutOfMemory;
    } catch (...) {
        return kNoMatch;
    }
}

}  // namespace

}  // namespace kov::panorama

using namespace kov::panorama;

int32_t px_init(const px_allocator* allocator, void*, uint32_t, px_instance* instance) {
    if (!allocator || !allocator->allocate || !allocator->release || !instance)
        return kBadArgument;
    void* memory = allocator->allocate(sizeof(Instance));
    if (!memory)
        return kOutOfMemory;
    *instance = new (memory) Instance(*allocator);
    return kOk;
}

int32_t px_setParams(px_instance instance, int32_t width, int32_t height, int32_t, int32_t, int32_t, int32_t,
                     int32_t max_frames, int32_t, float, int32_t memory_budget) {
    return guarded(instance, [&](Instance& self) { return self.setParams(width, height, max_frames, memory_budget); });
}

int32_t px_start(px_instance instance) {
    return guarded(instance, [](Instance& self) { return self.start(); });
}

int32_t px_beginCapture(px_instance instance, int32_t) {
    return guarded(instance, [](Instance& self) { return self.beginCapture(); });
}

int32_t px_handleFrame(px_instance instance, const px_image* frame, uint32_t, px_status* status) {
    return frame ? guarded(instance, [&](Instance& self) { return self.handleFrame(*frame, status); }) : kBadArgument;
}

int32_t px_addFrame(px_instance instance, const px_image* frame, uint32_t, px_status* status) {
    return frame ? guarded(instance, [&](Instance& self) { return self.addFrame(*frame, status); }) : kBadArgument;
}

int32_t px_endCapture(px_instance instance) {
    return guarded(instance, [](Instance& self) { return self.endCapture(); });
}

int32_t px_createPanorama(px_instance instance, uint32_t* progress) {
    return guarded(instance, [&](Instance& self) { return self.createPanorama(progress); });
}

int32_t px_getPanoramaImage(px_instance instance, px_image* image) {
    return guarded(instance, [&](Instance& self) { return self.getImage(image); });
}

int32_t px_abort(px_instance instance) {
    return guarded(instance, [](Instance& self) {
        self.abort();
        return kOk;
    });
}

int32_t px_free(px_instance instance) {
    if (!instance)
        return kBadArgument;
    auto* self = static_cast<Instance*>(instance);
    const px_allocator allocator = self->allocator();
    self->~Instance();
    allocator.release(self);
    return kOk;
}
