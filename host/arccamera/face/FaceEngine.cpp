// Face tracking: cascades now and then, matching in between.

#include <android/log.h>
#include <arccamera/face.h>

#include <algorithm>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>
#include <string>
#include <vector>

#include "host/arccamera/face/Memory.h"

namespace kov::arc {

namespace {

constexpr MRESULT kOk = 0;
constexpr MRESULT kBadArgument = 2;
constexpr MRESULT kNoMemory = 4;
constexpr MRESULT kNoCascade = 5;

constexpr int kMostFaces = 16;
constexpr int kReducedWidth = 320;      // pixels
constexpr double kLeastFace = 1.0 / 6;  // of the frame's height
constexpr double kScaleStep = 1.2;
constexpr int kNeighbours = 4;
constexpr double kSearch = 0.35;     // how far a face may move between frames, of its width
constexpr double kLeastMatch = 0.6;  // of a normalised correlation
constexpr float kSmoothing = 0.5F;   // weight of the new place
constexpr int kPatchSide = 32;       // of a face's picture for matching

float overlapRatio(const cv::Rect2f& a, const cv::Rect2f& b) {
    const float common = (a & b).area();
    return common / (a.area() + b.area() - common);
}

/// A face that is followed, in reduced pixels.
struct Face {
    cv::Rect2f place;
    uint8_t patch[kPatchSide * kPatchSide];  // its picture when it was detected
};

cv::Rect toRect(const cv::Rect2f& place) {
    return {cvRound(place.x), cvRound(place.y), cvRound(place.width), cvRound(place.height)};
}

}  // namespace

/// Lies in the block that the shot hands over, but for what OpenCV keeps.
class FaceEngine {
public:
    FaceEngine(const AMFPAF_IMAGE_INFO& image, int maxFaces)
        : mImage(image),
          mMaxFaces(std::clamp(maxFaces, 1, kMostFaces)),
          mScale(std::max(1.0, image.width / static_cast<double>(kReducedWidth))) {}

    bool loadCascade() { return mCascade.load(std::string(cascadeFolder()) + "/haarcascade_frontalface_alt.xml"); }
    void setTrackedFrames(int frames) { mTrackedFrames = std::max(0, frames); }

    void detect(const uint8_t* frame, AMFPAF_FACE_RESULT* result) {
        const cv::Mat luma(mImage.height, mImage.width, CV_8U, const_cast<uint8_t*>(frame), mImage.stride);
        cv::resize(luma, mReduced, {}, 1 / mScale, 1 / mScale, cv::INTER_AREA);
        followAll();
        if (mSinceDetection++ >= mTrackedFrames || mCount == 0) {
            detectAll();
            mSinceDetection = 0;
        }
        report(result);
    }

private:
    void followAll() {
        int kept = 0;
        for (int i = 0; i < mCount; ++i) {
            if (follow(mFaces[i]))
                mFaces[kept++] = mFaces[i];
        }
        mCount = kept;
    }

    /// Finds the face near its last place; false when it is not there any more.
    bool follow(Face& face) {
        const float reach = static_cast<float>(kSearch) * face.place.width;
        const cv::Rect2f around(face.place.x - reach, face.place.y - reach, face.place.width + 2 * reach,
                                face.place.height + 2 * reach);
        const cv::Rect area = toRect(around) & cv::Rect({}, mReduced.size());
        const double toPatch = kPatchSide / static_cast<double>(face.place.width);
        cv::Mat search;
        cv::resize(mReduced(area), search, {}, toPatch, toPatch, cv::INTER_AREA);
        if (search.cols < kPatchSide || search.rows < kPatchSide)
            return false;
        cv::Mat scores;
        cv::matchTemplate(search, cv::Mat(kPatchSide, kPatchSide, CV_8U, face.patch), scores, cv::TM_CCOEFF_NORMED);
        double best = 0;
        cv::Point at;
        cv::minMaxLoc(scores, nullptr, &best, nullptr, &at);
        if (best < kLeastMatch)
            return false;
        const cv::Point2f found(static_cast<float>(area.x + at.x / toPatch),
                                static_cast<float>(area.y + at.y / toPatch));
        face.place.x += kSmoothing * (found.x - face.place.x);
        face.place.y += kSmoothing * (found.y - face.place.y);
        return true;
    }

    /// Takes in what a full detection finds: it corrects the faces that are followed and adds new ones.
    void detectAll() {
        std::vector<cv::Rect> found;
        const int least = cvRound(kLeastFace * mReduced.rows);
        mCascade.detectMultiScale(mReduced, found, kScaleStep, kNeighbours, 0, {least, least});
        for (const cv::Rect& place : found) {
            Face* known = nullptr;
            for (int i = 0; i < mCount && !known; ++i) {
                if (overlapRatio(mFaces[i].place, place) > 0.3F)
                    known = &mFaces[i];
            }
            if (!known) {
                if (mCount == kMostFaces)
                    continue;
                known = &mFaces[mCount++];
                known->place = place;
            }
            const cv::Rect2f target = place;
            cv::Rect2f& now = known->place;
            now = {now.x + kSmoothing * (target.x - now.x), now.y + kSmoothing * (target.y - now.y),
                   now.width + kSmoothing * (target.width - now.width),
                   now.height + kSmoothing * (target.height - now.height)};
            takePatch(*known);
        }
    }

    void takePatch(Face& face) {
        const cv::Rect area = toRect(face.place) & cv::Rect({}, mReduced.size());
        cv::Mat patch(kPatchSide, kPatchSide, CV_8U, face.patch);
        cv::resize(mReduced(area), patch, patch.size(), 0, 0, cv::INTER_AREA);
    }

    void report(AMFPAF_FACE_RESULT* result) {
        std::sort(mFaces, mFaces + mCount, [](const Face& a, const Face& b) { return a.place.width > b.place.width; });
        const int count = std::min(mCount, mMaxFaces);
        for (int i = 0; i < count; ++i) {
            const cv::Rect2f& place = mFaces[i].place;
            const auto inside = [](double value, int32_t size) {
                return std::clamp(static_cast<int32_t>(value), int32_t{0}, size - 1);
            };
            mRects[i] = {inside(place.x * mScale, mImage.width), inside(place.y * mScale, mImage.height),
                         inside(place.br().x * mScale, mImage.width), inside(place.br().y * mScale, mImage.height)};
        }
        *result = {mRects, count, 0};
    }

    const AMFPAF_IMAGE_INFO mImage;
    const int mMaxFaces;
    const double mScale;  // frame pixels for each reduced one
    int mTrackedFrames = 0;
    int mSinceDetection = 0;
    int mCount = 0;
    Face mFaces[kMostFaces];
    __tag_rect mRects[kMostFaces];
    cv::Mat mReduced;
    cv::CascadeClassifier mCascade;
};

}  // namespace kov::arc

using namespace kov::arc;

MRESULT AMFPAF_InitialFaceEngine(MHandle manager, AMFPAF_IMAGE_INFO* image, AMFPAF_FACE_RESULT* result, MHandle* engine,
                                 int32_t, int32_t, int32_t max_faces) {
    if (!manager || !image || !result || !engine || image->width < 1 || image->height < 1)
        return kBadArgument;
    auto* made = static_cast<MemoryManager*>(manager)->make<FaceEngine>(*image, max_faces);
    if (!made)
        return kNoMemory;
    if (!made->loadCascade()) {
        __android_log_print(ANDROID_LOG_ERROR, "arccamera",
                            "no cascades in %s; install opencv-data or set KOV_CASCADES", cascadeFolder());
        made->~FaceEngine();
        return kNoCascade;
    }
    *result = {};
    *engine = made;
    return kOk;
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
    if (!engine || !frame || !result)
        return kBadArgument;
    static_cast<FaceEngine*>(engine)->detect(frame, result);
    return kOk;
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
