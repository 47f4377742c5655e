// libActionShot.so: follows a moving subject and composes its moments into one picture.

#include <actionshot/actionshot.h>

#include <algorithm>
#include <memory>
#include <new>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <utility>
#include <vector>

#include "host/actionshot/Compose.h"
#include "host/actionshot/SubjectTracker.h"

namespace kov::action {

namespace {

// Results of a frame.
constexpr int32_t kTaken = 0;
constexpr int32_t kFollowing = 1;
constexpr int32_t kNobody = 2;
constexpr int32_t kEnded = 4;

constexpr int32_t kMomentsParameter = 0;
constexpr int kLeastMoments = 3;  // after which a subject that leaves ends the series
constexpr int kGoneFrames = 24;   // without the subject
constexpr int kSteadyFrames = 2;  // with it, before it is taken
constexpr int kMostMoments = 24;
constexpr int kOtherPlaces = 2;    // first frame, last frame
constexpr int kEnoughMoments = 4;  // that the places hold: otherwise frames are kept smaller
constexpr int kMostViews = 8;      // of the background, beyond those
constexpr int kViewStep = 10;      // frames between two views, at first
constexpr int kMargin = 4;         // pixels between two places of the subject
constexpr int kLeastSide = 16;
constexpr int kMostSide = 4096;

/// How much smaller than the preview frames may be kept.
constexpr double kReductions[] = {1, 1.5, 2, 3, 4};

// The shot draws its marks at these distances from what it is told.
const cv::Point kSubjectMark(16, 24);
constexpr int kTakenLeft = -14, kTakenTop = 24, kTakenRight = 16, kTakenBottom = -26;

ActionShot_MemoryFunctions gMemory = {};

/// A moment that was taken.
struct Taken {
    uint8_t* place;
    cv::Point2d shift;
    cv::Rect subject;
};

}  // namespace

class Engine {
public:
    Engine(cv::Size size, uint8_t* memory, size_t bytes);

    /// The memory holds the result, and what it is made of.
    bool hasPlaces() const { return mBytes >= bytesOf(mSize) && mPlaces.size() > kOtherPlaces; }
    void setWanted(int moments) { mWanted = std::clamp(moments, 1, kMostMoments); }
    bool lend(uint8_t** blocks, int count, size_t size);
    bool takeBack();
    void cancel();
    bool start();
    bool connected() const { return mSeen > 0; }
    int32_t handle(const OPT_API_ASImage& frame);
    void show(ActionShot_DisplayData* data) const;
    int32_t progress() const { return std::min(100, 100 * static_cast<int32_t>(mTaken.size()) / std::max(most(), 1)); }
    bool create(int32_t* progress, OPT_API_ASImage* result);

private:
    static size_t bytesOf(cv::Size size) { return static_cast<size_t>(size.area()) * 3 / 2; }
    static cv::Size keptSize(cv::Size size, size_t bytes);
    uint8_t* place(size_t index) const {
        return index < mPlaces.size() ? mPlaces[index] : mLent[index - mPlaces.size()];
    }
    int most() const { return std::min<int>(mWanted, static_cast<int>(mPlaces.size() + mLent.size()) - kOtherPlaces); }
    void keep(const OPT_API_ASImage& frame, uint8_t* place) const;
    void keepView(const OPT_API_ASImage& frame, cv::Point2d shift);
    void takeMoment(const OPT_API_ASImage& frame, const Sighting& sighting);
    bool isMoment(const Sighting& sighting) const;
    void prepareResult();
    void finishResult();

    const cv::Size mSize;
    uint8_t* const mMemory;  // the working memory; the result lies at its beginning
    const size_t mBytes;
    const cv::Size mKept;           // of the frames in the places
    std::vector<uint8_t*> mPlaces;  // for frames, in the working memory
    std::vector<uint8_t*> mLent;    // likewise, in the temporary blocks
    int mWanted = 8;

    bool mRunning = false;
    std::unique_ptr<SubjectTracker> mTracker;
    bool mHaveFirst = false;
    cv::Point2d mLastShift;
    cv::Rect mSubject;  // in the current frame
    int mSeen = 0;      // frames in a row with the subject
    int mGone = 0;      // and without
    std::vector<Taken> mTaken;
    int mTakenNumber = 0;       // of their subject
    cv::Mat mTakenOutlines;     // of all of them
    std::vector<Taken> mViews;  // places for views of the background, those in use first
    size_t mViewsUsed = 0;
    int mViewStep = kViewStep;  // frames between two of them
    int mFrames = 0;
    std::unique_ptr<Compose> mCompose;
    int mStepsDone = 0;
};

/// The largest size of which the memory holds enough frames.
cv::Size Engine::keptSize(cv::Size size, size_t bytes) {
    cv::Size kept;
    for (const double reduction : kReductions) {
        kept = {cvFloor(size.width / reduction / 2) * 2, cvFloor(size.height / reduction / 2) * 2};
        if (bytes >= bytesOf(kept) * (kOtherPlaces + kEnoughMoments) ||
            std::min(kept.width, kept.height) < 2 * kLeastSide)
            break;
    }
    return kept;
}

Engine::Engine(cv::Size size, uint8_t* memory, size_t bytes)
    : mSize(size), mMemory(memory), mBytes(bytes), mKept(keptSize(size, bytes)) {
    const size_t each = std::max<size_t>(bytesOf(mKept), 1);
    const size_t count = std::min<size_t>(bytes / each, kOtherPlaces + kMostMoments + kMostViews);
    for (size_t i = 0; i < count; ++i)
        mPlaces.push_back(memory + i * bytesOf(mKept));
}

bool Engine::lend(uint8_t** blocks, int count, size_t size) {
    if (!mLent.empty() || count < 1)
        return false;
    for (int i = 0; i < count && size >= bytesOf(mKept); ++i) {
        if (blocks[i])
            mLent.push_back(blocks[i]);
    }
    return true;
}

bool Engine::takeBack() {
    cancel();
    mLent.clear();
    return true;
}

void Engine::cancel() {
    mRunning = false;
    mTracker.reset();
    mCompose.reset();
    mTaken.clear();
    mTakenNumber = 0;
    mTakenOutlines.release();
    mSubject = {};
    mSeen = mGone = 0;
    mHaveFirst = false;
    mViews.clear();
    mViewsUsed = 0;
    mViewStep = kViewStep;
    mFrames = 0;
}

bool Engine::start() {
    cancel();
    if (most() < 1)
        return false;
    mTracker = std::make_unique<SubjectTracker>(mSize);
    for (size_t next = static_cast<size_t>(most()) + kOtherPlaces;
         next < mPlaces.size() + mLent.size() && mViews.size() < kMostViews; ++next)
        mViews.push_back({place(next), {}, {}});
    mRunning = true;
    return true;
}

void Engine::keep(const OPT_API_ASImage& frame, uint8_t* place) const {
    uint8_t* const chroma = place + static_cast<size_t>(mKept.area());
    if (mKept == mSize) {
        gMemory.copy(place, frame.plane[0], static_cast<size_t>(mSize.area()));
        gMemory.copy(chroma, frame.plane[1], static_cast<size_t>(mSize.area()) / 2);
        return;
    }
    cv::Mat smallLuma(mKept, CV_8U, place);
    cv::Mat smallChroma(mKept / 2, CV_8UC2, chroma);
    cv::resize(cv::Mat(mSize, CV_8U, frame.plane[0]), smallLuma, mKept, 0, 0, cv::INTER_AREA);
    cv::resize(cv::Mat(mSize / 2, CV_8UC2, frame.plane[1]), smallChroma, mKept / 2, 0, 0, cv::INTER_AREA);
}

/// Keeps a frame now and then, so that the background can be told from what passes by. Spread over the whole series:
/// when the places are full, every other view goes and the next ones come half as often.
void Engine::keepView(const OPT_API_ASImage& frame, cv::Point2d shift) {
    if (mViews.size() < 2 || ++mFrames % mViewStep != 0)
        return;
    if (mViewsUsed == mViews.size()) {
        for (size_t i = 1; 2 * i < mViews.size(); ++i)
            std::swap(mViews[i], mViews[2 * i]);
        mViewsUsed = (mViews.size() + 1) / 2;
        mViewStep *= 2;
    }
    keep(frame, mViews[mViewsUsed].place);
    mViews[mViewsUsed++].shift = shift;
}

/// The whole subject, clear of where it was taken before.
bool Engine::isMoment(const Sighting& sighting) const {
    if (!sighting.whole || mSeen < kSteadyFrames)
        return false;
    if (mTakenOutlines.empty() || sighting.number != mTakenNumber)
        return true;
    cv::Mat wide;
    cv::dilate(sighting.outline, wide, cv::getStructuringElement(cv::MORPH_ELLIPSE, {kMargin, kMargin}));
    return cv::countNonZero(wide & mTakenOutlines) == 0;
}

/// The moments are those of one subject: when another one is taken, it begins anew.
void Engine::takeMoment(const OPT_API_ASImage& frame, const Sighting& sighting) {
    if (sighting.number != mTakenNumber) {
        mTaken.clear();
        mTakenOutlines.release();
        mTakenNumber = sighting.number;
    }
    uint8_t* const to = place(kOtherPlaces + mTaken.size());
    keep(frame, to);
    mTaken.push_back({to, sighting.shift, sighting.subject});
    mTakenOutlines = mTakenOutlines.empty() ? sighting.outline : cv::Mat(mTakenOutlines | sighting.outline);
}

int32_t Engine::handle(const OPT_API_ASImage& frame) {
    if (mRunning && static_cast<int>(mTaken.size()) >= most())
        mRunning = false;  // with the frame after the last moment, so that the application hears of that one
    if (!mRunning || frame.width != mSize.width || frame.height != mSize.height || !frame.plane[0] || !frame.plane[1])
        return kEnded;
    const Sighting sighting =
        mTracker->look(cv::Mat(mSize, CV_8U, frame.plane[0]), cv::Mat(mSize / 2, CV_8UC2, frame.plane[1]));
    if (!mHaveFirst) {
        keep(frame, place(0));
        mHaveFirst = true;
    }
    keepView(frame, sighting.shift);
    mSubject = sighting.subject;
    mSeen = mSubject.empty() ? 0 : mSeen + 1;
    mGone = mSubject.empty() || sighting.number != mTakenNumber ? mGone + 1 : 0;
    if (mGone >= kGoneFrames && static_cast<int>(mTaken.size()) >= kLeastMoments) {
        keep(frame, place(1));  // without the subject: one more view of the background
        mLastShift = sighting.shift;
        mTaken.push_back({place(1), mLastShift, {}});
        mRunning = false;
        return kEnded;
    }
    const bool another = sighting.number != mTakenNumber && static_cast<int>(mTaken.size()) >= kLeastMoments;
    if (another || !isMoment(sighting))
        return mSubject.empty() ? kNobody : kFollowing;
    takeMoment(frame, sighting);
    return kTaken;
}

void Engine::show(ActionShot_DisplayData* data) const {
    data->count = 0;
    const auto add = [&](int32_t x0, int32_t y0, int32_t x1, int32_t y1, int32_t kind) {
        data->entries[data->count++] = {x0, y0, x1, y1, kind};
    };
    for (const Taken& taken : mTaken) {
        const cv::Rect& at = taken.subject;
        if (!at.empty() && data->count < 120)
            add(at.x - kTakenLeft, at.y - kTakenTop, at.br().x - kTakenRight, at.br().y - kTakenBottom, 1);
    }
    if (!mSubject.empty())
        add(mSubject.x - kSubjectMark.x, mSubject.y - kSubjectMark.y, mSubject.br().x - kSubjectMark.x,
            mSubject.br().y - kSubjectMark.y, 0);
}

void Engine::prepareResult() {
    const double scale = static_cast<double>(mKept.width) / mSize.width;
    const auto moment = [&](uint8_t* memory, cv::Point2d shift, const cv::Rect& subject) {
        const cv::Rect kept(cvFloor(subject.x * scale), cvFloor(subject.y * scale), cvCeil(subject.width * scale),
                            cvCeil(subject.height * scale));
        return Moment{cv::Mat(mKept.height * 3 / 2, mKept.width, CV_8U, memory), shift * scale,
                      kept & cv::Rect({}, mKept)};
    };
    std::vector<Moment> moments = {moment(place(0), {}, {})};
    for (const Taken& taken : mTaken)
        moments.push_back(moment(taken.place, taken.shift, taken.subject));
    for (size_t i = 0; i < mViewsUsed; ++i)
        moments.push_back(moment(mViews[i].place, mViews[i].shift, {}));
    mCompose = std::make_unique<Compose>(std::move(moments));
    mStepsDone = 0;
    mRunning = false;
}

/// Puts the picture into the memory, at the preview's size, semi-planar with V first. The frames that lay there are not
/// needed any more.
void Engine::finishResult() {
    cv::Mat picture = mCompose->picture();
    if (mKept != mSize)
        cv::resize(picture, picture, mSize, 0, 0, cv::INTER_CUBIC);
    cv::Mat luma(mSize, CV_8U, mMemory);
    cv::extractChannel(picture, luma, 0);
    cv::Mat pairs(mSize, CV_8UC2);
    const int order[] = {1, 0, 2, 1};
    cv::mixChannels(&picture, 1, &pairs, 1, order, 2);
    cv::Mat chroma(mSize / 2, CV_8UC2, mMemory + mSize.area());
    cv::resize(pairs, chroma, chroma.size(), 0, 0, cv::INTER_AREA);
    mCompose.reset();
    mTaken.clear();
}

bool Engine::create(int32_t* progress, OPT_API_ASImage* result) {
    if (!mCompose) {
        if (mTaken.empty())
            return false;  // nothing to show: the progress stays where it is
        prepareResult();
    }
    mCompose->step();
    if (++mStepsDone < mCompose->steps()) {
        *progress = 99 * mStepsDone / mCompose->steps();
        return true;
    }
    finishResult();
    *result = {0, mSize.width, mSize.height, {mMemory, mMemory + mSize.area(), nullptr}};
    *progress = 100;
    return false;
}

namespace {

/// Calls into an engine. Without one, and when something is thrown, which never leaves the library, the answer is
/// `failed`.
template <typename Call>
int32_t guarded(ActionShot_Handle engine, int32_t failed, Call call) {
    if (!engine)
        return failed;
    try {
        return static_cast<int32_t>(call(*static_cast<Engine*>(engine)));
    } catch (...) {
        return failed;
    }
}

}  // namespace

}  // namespace kov::action

using namespace kov::action;

void ActionShot_SetMemoryFunctions(const ActionShot_MemoryFunctions* functions) {
    if (functions && functions->copy)
        gMemory = *functions;
}

int32_t ActionShot_Initialize(ActionShot_Handle* engine, int32_t width, int32_t height, void* work_memory,
                              uint32_t work_memory_size) {
    if (!engine)
        return 0;
    *engine = nullptr;
    if (!work_memory || !gMemory.copy || width < kLeastSide || height < kLeastSide || width % 2 || height % 2 ||
        width > kMostSide || height > kMostSide)
        return 0;
    try {
        auto made =
            std::make_unique<Engine>(cv::Size(width, height), static_cast<uint8_t*>(work_memory), work_memory_size);
        if (!made->hasPlaces())
            return 0;
        *engine = made.release();
    } catch (...) {
        return 0;
    }
    return 1;
}

void ActionShot_SetResolution(ActionShot_Handle, int32_t, int32_t) {}  // that of ActionShot_Initialize holds

void ActionShot_SetSceneCompletionActivationMode(ActionShot_Handle, int32_t) {}  // the background is always completed

void ActionShot_SetConfigurationParameter(ActionShot_Handle engine, int32_t parameter, int32_t value) {
    if (engine && parameter == kMomentsParameter)
        static_cast<Engine*>(engine)->setWanted(value);
}

int32_t ActionShot_SetTempMemory(ActionShot_Handle engine, uint8_t** blocks, int32_t count, int32_t size) {
    if (!blocks || size <= 0)
        return 0;
    return guarded(engine, 0, [&](Engine& self) { return self.lend(blocks, count, static_cast<size_t>(size)); });
}

int32_t ActionShot_UnsetTempMemory(ActionShot_Handle engine) {
    return guarded(engine, 0, [](Engine& self) { return self.takeBack(); });
}

void ActionShot_CancelSeries(ActionShot_Handle engine) {
    if (engine)
        static_cast<Engine*>(engine)->cancel();
}

int32_t ActionShot_StartSeries(ActionShot_Handle engine) {
    return guarded(engine, 0, [](Engine& self) { return self.start(); });
}

int32_t ActionShot_IsConnected(ActionShot_Handle engine) {
    return guarded(engine, 0, [](Engine& self) { return self.connected(); });
}

int32_t ActionShot_HandleFrame(ActionShot_Handle engine, const OPT_API_ASImage* frame) {
    if (!frame)
        return kEnded;
    return guarded(engine, kEnded, [&](Engine& self) { return self.handle(*frame); });
}

void ActionShot_GetAcquisitionDisplayData(ActionShot_Handle engine, ActionShot_DisplayData* data) {
    if (!data)
        return;
    data->count = 0;
    if (engine)
        static_cast<Engine*>(engine)->show(data);
}

int32_t ActionShot_AcquisitionProgress(ActionShot_Handle engine) {
    return guarded(engine, 0, [](Engine& self) { return self.progress(); });
}

int32_t ActionShot_CreateResult(ActionShot_Handle engine, int32_t* progress, OPT_API_ASImage* result) {
    if (!progress || !result)
        return 0;
    return guarded(engine, 0, [&](Engine& self) { return self.create(progress, result); });
}

void ActionShot_Finalize(ActionShot_Handle* engine) {
    if (!engine)
        return;
    delete static_cast<Engine*>(*engine);
    *engine = nullptr;
}
