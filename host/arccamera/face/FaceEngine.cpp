// Face tracking: a finder now and then, matching in between.

#include <algorithm>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "host/arccamera/face/Engine.h"
#include "host/arccamera/face/FaceFinder.h"
#include "host/arccamera/face/Memory.h"

namespace kov::arc {

namespace {

constexpr int32_t kOtherLumaFirst = 11;  // a further format whose first plane is luma
constexpr int kReducedSide = 320;        // pixels of the longer one
constexpr float kLeastFace = 1.0F / 6;   // of the frame's shorter side
constexpr float kSearch = 0.35F;         // how far a face may move between frames, of its width
constexpr double kLeastMatch = 0.6;      // of a normalised correlation
constexpr float kSmoothing = 0.5F;       // weight of the new place
constexpr int kPatchSide = 32;           // of a face's picture for matching
constexpr float kSameFace = 0.3F;        // overlap from which on two places are one face
constexpr int kMostMisses = 3;           // looks in a row that did not find the face again
constexpr int kLooksNear = 2;            // of three looks, those that go near the known faces only
constexpr int kNearPatch = 128;          // pixels of the surrounding of a known face that is looked at
constexpr float kNearReach = 2.2F;       // its side, of the face's
constexpr float kNearLeast = 0.6F;       // of the face's side; what is smaller is something else

bool isSame(const cv::Rect2f& a, const cv::Rect2f& b) {
    const float common = (a & b).area();
    return common > kSameFace * (a.area() + b.area() - common) || common > 0.7F * std::min(a.area(), b.area());
}

/// A face that is followed, in reduced pixels.
struct Track {
    cv::Rect2f place;
    float tilt;
    bool confirmed;  // found a second time
    int misses;
    uint8_t patch[kPatchSide * kPatchSide];  // its picture when it was found
};

cv::Rect toRect(const cv::Rect2f& place) {
    return {cvRound(place.x), cvRound(place.y), cvRound(place.width), cvRound(place.height)};
}

cv::Rect2f enlarged(const cv::Rect2f& place, float ratio) {
    const float more = (ratio - 1) / 2;
    return {place.x - more * place.width, place.y - more * place.height, place.width * ratio, place.height * ratio};
}

cv::Rect2f between(const cv::Rect2f& from, const cv::Rect2f& to, float part) {
    return {from.x + part * (to.x - from.x), from.y + part * (to.y - from.y),
            from.width + part * (to.width - from.width), from.height + part * (to.height - from.height)};
}

}  // namespace

/// Lies in the block that the shot hands over, but for what OpenCV keeps.
class FaceEngine {
public:
    FaceEngine(const AMFPAF_IMAGE_INFO& image, int maxFaces, std::unique_ptr<FaceFinder> finder)
        : mImage(image),
          mMaxFaces(std::min(maxFaces, kMostFaces)),
          mScale(std::max(1.0F, static_cast<float>(std::max(image.width, image.height)) / kReducedSide)),
          mFinder(std::move(finder)) {
        // The first picture of each size takes long; it is not to be a frame.
        const cv::Size reduced(cvRound(static_cast<float>(image.width) / mScale),
                               cvRound(static_cast<float>(image.height) / mScale));
        for (const cv::Size size : {reduced, mNear.size()})
            mFinder->find(cv::Mat::zeros(size, CV_8U), static_cast<float>(kPatchSide), 0);
    }

    void setTrackedFrames(int frames) { mTrackedFrames = std::max(0, frames); }

    void detect(uint8_t* frame, AMFPAF_FACE_RESULT* result) {
        const cv::Mat luma = lumaOf(frame, mImage.width, mImage.height);
        cv::resize(luma, mReduced, {}, 1 / mScale, 1 / mScale, cv::INTER_AREA);
        removeTracks([this](Track& track) { return !follow(track); });
        if (mSinceLook++ >= mTrackedFrames) {
            mSinceLook = 0;
            if (mCount > 0 && mLook++ % (kLooksNear + 1) < kLooksNear)
                lookNear(luma, mNextNear++ % mCount);
            else
                lookEverywhere();
        } else {
            confirmOne(luma);
        }
        removeTracks([](const Track& track) { return track.misses >= kMostMisses; });
        mergeTracks();
        report(result);
    }

private:
    template <typename Condition>
    void removeTracks(const Condition& isGone) {
        mCount = static_cast<int>(std::remove_if(mTracks, mTracks + mCount, isGone) - mTracks);
    }

    /// Finds the face near its last place; false when it is not there any more.
    bool follow(Track& track) {
        const cv::Rect area = toRect(enlarged(track.place, 1 + 2 * kSearch)) & cv::Rect({}, mReduced.size());
        const float toPatch = kPatchSide / track.place.width;
        const cv::Size size(cvRound(static_cast<float>(area.width) * toPatch),
                            cvRound(static_cast<float>(area.height) * toPatch));
        if (size.width < kPatchSide || size.height < kPatchSide)
            return false;
        cv::resize(mReduced(area), mSearch, size, 0, 0, cv::INTER_AREA);
        cv::matchTemplate(mSearch, cv::Mat(kPatchSide, kPatchSide, CV_8U, track.patch), mScores, cv::TM_CCOEFF_NORMED);
        double best = 0;
        cv::Point at;
        cv::minMaxLoc(mScores, nullptr, &best, nullptr, &at);
        if (best < kLeastMatch)
            return false;
        const cv::Rect2f found(static_cast<float>(area.x) + static_cast<float>(at.x) / toPatch,
                               static_cast<float>(area.y) + static_cast<float>(at.y) / toPatch, track.place.width,
                               track.place.height);
        track.place = between(track.place, found, kSmoothing);
        return true;
    }

    /// A face that was found once is looked at again in the next frame.
    void confirmOne(const cv::Mat& luma) {
        for (int i = 0; i < mCount; ++i) {
            if (!mTracks[i].confirmed && mTracks[i].misses == 0)
                return lookNear(luma, i);
        }
    }

    /// Looks for a known face in its surrounding, at the frame's full resolution.
    void lookNear(const cv::Mat& luma, int index) {
        Track& track = mTracks[index];
        const cv::Rect2f around = enlarged(track.place, kNearReach);
        const cv::Rect area = toRect({around.tl() * mScale, around.size() * mScale}) & cv::Rect({}, luma.size());
        const float toNear = kNearPatch / (around.width * mScale);
        const cv::Size size(std::min(kNearPatch, cvRound(static_cast<float>(area.width) * toNear)),
                            std::min(kNearPatch, cvRound(static_cast<float>(area.height) * toNear)));
        ++track.misses;
        if (size.width < kPatchSide || size.height < kPatchSide)
            return;
        mNear.setTo(0);
        cv::resize(luma(area), mNear(cv::Rect({}, size)), size, 0, 0, toNear < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
        for (const Face& face : mFinder->find(mNear, kNearLeast * kNearPatch / kNearReach, track.tilt)) {
            const cv::Point2f corner(static_cast<float>(area.x), static_cast<float>(area.y));
            const cv::Rect2f place((face.place.tl() / toNear + corner) / mScale, face.place.size() / (toNear * mScale));
            if (isSame(place, track.place))
                return takeIn(track, {place, face.tilt});
        }
    }

    /// Looks for known and new faces in the whole frame.
    void lookEverywhere() {
        const auto shorter = static_cast<float>(std::min(mReduced.cols, mReduced.rows));
        const std::vector<float>& tilts = mFinder->tilts();
        for (const Face& face : mFinder->find(mReduced, kLeastFace * shorter, tilts[mNextTilt++ % tilts.size()])) {
            Track* const end = mTracks + mCount;
            Track* known = std::find_if(mTracks, end, [&](const Track& t) { return isSame(t.place, face.place); });
            if (known == end) {
                if (mCount == kMostFaces)
                    continue;
                ++mCount;
                known->place = face.place;
                known->tilt = face.tilt;
                known->confirmed = false;
                known->misses = 0;
                takePatch(*known);
            } else {
                takeIn(*known, face);
            }
        }
    }

    /// A known face was found again.
    void takeIn(Track& track, const Face& face) {
        track.place = between(track.place, face.place, kSmoothing);
        track.tilt = face.tilt;
        track.confirmed = true;
        track.misses = 0;
        takePatch(track);
    }

    void takePatch(Track& track) {
        const cv::Rect area = toRect(track.place) & cv::Rect({}, mReduced.size());
        if (area.empty()) {
            track.misses = kMostMisses;
            return;
        }
        cv::Mat patch(kPatchSide, kPatchSide, CV_8U, track.patch);
        cv::resize(mReduced(area), patch, patch.size(), 0, 0, cv::INTER_AREA);
    }

    /// Two tracks that have come to lie on one face are one; the first is the older one.
    void mergeTracks() {
        for (int i = 0; i < mCount; ++i) {
            const Track& kept = mTracks[i];
            Track* const end = std::remove_if(mTracks + i + 1, mTracks + mCount,
                                              [&](const Track& other) { return isSame(kept.place, other.place); });
            mCount = static_cast<int>(end - mTracks);
        }
    }

    /// The largest faces, first the largest.
    void report(AMFPAF_FACE_RESULT* result) {
        const Track* order[kMostFaces];
        int known = 0;
        for (int i = 0; i < mCount; ++i) {
            if (mTracks[i].confirmed)
                order[known++] = &mTracks[i];
        }
        std::stable_sort(order, order + known,
                         [](const Track* a, const Track* b) { return a->place.width > b->place.width; });
        const int count = std::min(known, mMaxFaces);
        for (int i = 0; i < count; ++i) {
            const cv::Rect2f& place = order[i]->place;
            const auto inside = [this](float value, int32_t size) {
                return std::clamp(cvRound(value * mScale), 0, size - 1);
            };
            mRects[i] = {inside(place.x, mImage.width), inside(place.y, mImage.height),
                         inside(place.br().x, mImage.width), inside(place.br().y, mImage.height)};
        }
        *result = {mRects, count, 0};
    }

    const AMFPAF_IMAGE_INFO mImage;
    const int mMaxFaces;
    const float mScale;  // frame pixels for each reduced one
    const std::unique_ptr<FaceFinder> mFinder;
    int mTrackedFrames = 0;
    int mSinceLook = 1 << 20;  // the first frame is looked at
    unsigned mLook = 0;
    unsigned mNextNear = 0;
    unsigned mNextTilt = 0;
    int mCount = 0;
    Track mTracks[kMostFaces];  // the oldest first
    __tag_rect mRects[kMostFaces];
    cv::Mat mReduced, mSearch, mScores;
    cv::Mat mNear = cv::Mat::zeros(kNearPatch, kNearPatch, CV_8U);  // one size, so that a network is set up once
};

}  // namespace kov::arc

using namespace kov::arc;

MRESULT AMFPAF_InitialFaceEngine(MHandle manager, AMFPAF_IMAGE_INFO* image, AMFPAF_FACE_RESULT* result, MHandle* engine,
                                 int32_t, int32_t, int32_t max_faces) {
    return guarded("AMFPAF_InitialFaceEngine", [&] {
        if (!manager || !image || !result || !engine || max_faces < 1)
            return kBadArgument;
        // The other formats' first plane is not luma.
        if (image->format != ARC_FACE_FORMAT_YUV420P && image->format != ARC_FACE_FORMAT_YUV420SP &&
            image->format != kOtherLumaFirst) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "no faces in frames of format %d", image->format);
            return kBadArgument;
        }
        if (!isUsable(image->width, image->height)) {
            __android_log_print(ANDROID_LOG_ERROR, kTag, "no faces in frames of %dx%d", image->width, image->height);
            return kBadArgument;
        }
        std::unique_ptr<FaceFinder> finder = FaceFinder::make();
        if (!finder)
            return kNoCascade;
        auto* made = static_cast<MemoryManager*>(manager)->make<FaceEngine>(*image, max_faces, std::move(finder));
        if (!made)
            return kNoMemory;
        *result = {};
        *engine = made;
        return kOk;
    });
}

MRESULT AMFPAF_SetFaceOutPriority(MHandle, int32_t) {
    return kOk;  // the largest faces come first
}

MRESULT AMFPAF_SetTrackingFrameNumber(MHandle engine, int32_t frames) {
    if (!engine)
        return kBadArgument;
    static_cast<FaceEngine*>(engine)->setTrackedFrames(frames);
    return kOk;
}

MRESULT AMFPAF_FaceFeatureDetect(MHandle, MHandle engine, uint8_t* frame, AMFPAF_FACE_RESULT* result, int32_t, int32_t,
                                 int32_t, int32_t, int32_t) {
    return guarded("AMFPAF_FaceFeatureDetect", [&] {
        if (!engine || !frame || !result)
            return kBadArgument;
        static_cast<FaceEngine*>(engine)->detect(frame, result);
        return kOk;
    });
}

MRESULT AMFPAF_UninitialFaceEngine(MHandle, MHandle* engine, AMFPAF_FACE_RESULT* result) {
    if (engine && *engine) {
        static_cast<FaceEngine*>(*engine)->~FaceEngine();
        *engine = nullptr;
    }
    if (result)
        *result = {};
    return kOk;
}
