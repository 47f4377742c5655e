// Smile detection: a cascade on the lower half of each face, believed when it holds.

#include <android/log.h>
#include <arccamera/face.h>

#include <algorithm>
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
constexpr int kReducedWidth = 120;  // of a face, in pixels
constexpr double kScaleStep = 1.3;
constexpr int kNeighbours = 20;
constexpr int kFramesToSmile = 4;  // in a row
constexpr int kFramesToStop = 3;

/// What is known of a face from the frames before.
struct Mood {
    __tag_rect place;
    int seen;    // frames in a row with a smile
    int missed;  // frames in a row without
    bool smiles;
};

bool isSame(const __tag_rect& a, const __tag_rect& b) {
    const int32_t width = a.right - a.left;
    return std::abs(a.left + a.right - b.left - b.right) < width &&
           std::abs(a.top + a.bottom - b.top - b.bottom) < width;
}

}  // namespace

/// Lies in the block that the shot hands over, but for what OpenCV keeps.
class SmileEngine {
public:
    bool loadCascade() { return mCascade.load(std::string(cascadeFolder()) + "/haarcascade_smile.xml"); }

    void detect(const ASSD_IMAGE& image, const ASSD_FACE_INPUT& input, ASSD_SMILE_RESULT* result) {
        const cv::Mat luma(image.height, image.width, CV_8U, image.plane[0], image.stride[0]);
        Mood moods[kMostFaces];
        const int faces = std::clamp(input.count, 0, kMostFaces);
        int smiles = 0;
        for (int i = 0; i < faces; ++i) {
            moods[i] = moodOf(input.faces[i]);
            update(moods[i], hasSmile(luma, input.faces[i]));
            if (moods[i].smiles)
                mSmiles[smiles++] = input.faces[i];
        }
        std::copy_n(moods, faces, mMoods);
        mCount = faces;
        *result = {mSmiles, 0, faces, smiles};
    }

private:
    Mood moodOf(const __tag_rect& face) const {
        for (int i = 0; i < mCount; ++i) {
            if (!isSame(face, mMoods[i].place))
                continue;
            Mood mood = mMoods[i];
            mood.place = face;
            return mood;
        }
        return {face, 0, 0, false};
    }

    static void update(Mood& mood, bool smile) {
        mood.seen = smile ? mood.seen + 1 : 0;
        mood.missed = smile ? 0 : mood.missed + 1;
        if (mood.seen >= kFramesToSmile)
            mood.smiles = true;
        if (mood.missed >= kFramesToStop)
            mood.smiles = false;
    }

    bool hasSmile(const cv::Mat& luma, const __tag_rect& face) {
        const int width = face.right - face.left + 1;
        const int height = face.bottom - face.top + 1;
        const cv::Rect lower =
            cv::Rect(face.left, face.top + height / 2, width, height - height / 2) & cv::Rect({}, luma.size());
        if (lower.width < 16 || lower.height < 8)
            return false;
        const double scale = std::min(1.0, kReducedWidth / static_cast<double>(width));
        cv::resize(luma(lower), mReduced, {}, scale, scale, cv::INTER_AREA);
        std::vector<cv::Rect> mouths;
        mCascade.detectMultiScale(mReduced, mouths, kScaleStep, kNeighbours, 0,
                                  {mReduced.cols / 5, mReduced.cols / 10});
        return !mouths.empty();
    }

    int mCount = 0;
    Mood mMoods[kMostFaces];
    __tag_rect mSmiles[kMostFaces];
    cv::Mat mReduced;
    cv::CascadeClassifier mCascade;
};

}  // namespace kov::arc

using namespace kov::arc;

MRESULT ASSD_InitSmileEngine(MHandle manager, MHandle* engine, int32_t, int32_t height) {
    if (!manager || !engine || height < 1)
        return kBadArgument;
    auto* made = static_cast<MemoryManager*>(manager)->make<SmileEngine>();
    if (!made)
        return kNoMemory;
    if (!made->loadCascade()) {
        __android_log_print(ANDROID_LOG_ERROR, "arccamera",
                            "no cascades in %s; install opencv-data or set KOV_CASCADES", cascadeFolder());
        made->~SmileEngine();
        return kNoCascade;
    }
    *engine = made;
    return kOk;
}

MRESULT ASSD_SmileDetect(MHandle, MHandle engine, ASSD_IMAGE* image, ASSD_FACE_INPUT* faces, ASSD_SMILE_RESULT* result,
                         int32_t, int32_t) {
    if (!engine || !image || !faces || !result || !image->plane[0])
        return kBadArgument;
    static_cast<SmileEngine*>(engine)->detect(*image, *faces, result);
    return kOk;
}

MRESULT ASSD_UninitSmileEngine(MHandle, MHandle* engine) {
    if (engine && *engine) {
        static_cast<SmileEngine*>(*engine)->~SmileEngine();
        *engine = nullptr;
    }
    return kOk;
}
