// Smile detection: a look at each face now and then, believed when it holds.

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "host/arccamera/face/Engine.h"
#include "host/arccamera/face/Memory.h"
#include "host/arccamera/face/Networks.h"

namespace kov::arc {

namespace {

constexpr float kFaceMargin = 0.05F;  // of a face's side, that the expression network sees beyond it
constexpr float kSmiles = 0.8F;       // a level above which a face smiles
constexpr float kStops = 0.4F;        // and below which it does not any more
constexpr int kLeastFace = 24;        // pixels of a side

/// How happy a face looks at one moment. One thread at a time.
class Judge {
public:
    virtual ~Judge() = default;
    /// From 0 to 1. `face` lies inside the picture.
    virtual float look(const cv::Mat& luma, const cv::Rect& face) = 0;
    /// The weight of one look in a face's level.
    virtual float weight() const = 0;
    /// Frames from one look at a face to the next.
    virtual int pause() const = 0;
    virtual const char* name() const = 0;
};

class NetworkJudge : public Judge {
public:
    explicit NetworkJudge(std::unique_ptr<ExpressionNetwork> network) : mNetwork(std::move(network)) {}

    float look(const cv::Mat& luma, const cv::Rect& face) override {
        const cv::Point more(cvRound(kFaceMargin * static_cast<float>(face.width)),
                             cvRound(kFaceMargin * static_cast<float>(face.height)));
        return mNetwork->happiness(luma(cv::Rect(face.tl() - more, face.br() + more) & cv::Rect({}, luma.size())));
    }
    float weight() const override { return 0.25F; }
    int pause() const override { return 2; }
    const char* name() const override { return "expression network"; }

private:
    const std::unique_ptr<ExpressionNetwork> mNetwork;
};

/// A cascade on the lower half of the face. It takes pressed or talking lips for a smile now and then, so more looks
/// have to agree.
class CascadeJudge : public Judge {
public:
    bool load() { return loadCascade(mCascade, "haarcascade_smile.xml"); }

    float look(const cv::Mat& luma, const cv::Rect& face) override {
        constexpr double kReducedWidth = 120;  // of a face, in pixels
        constexpr double kScaleStep = 1.3;
        constexpr int kNeighbours = 20;
        const cv::Rect lower(face.x, face.y + face.height / 2, face.width, face.height - face.height / 2);
        const double scale = std::min(1.0, kReducedWidth / face.width);
        cv::resize(luma(lower), mReduced, {}, scale, scale, cv::INTER_AREA);
        mCascade.detectMultiScale(mReduced, mMouths, kScaleStep, kNeighbours, 0,
                                  {mReduced.cols / 5, mReduced.cols / 10});
        return mMouths.empty() ? 0 : 1;
    }
    float weight() const override { return 0.1F; }
    int pause() const override { return 1; }
    const char* name() const override { return "cascade; ./kov models fetches the expression network"; }

private:
    cv::CascadeClassifier mCascade;
    cv::Mat mReduced;
    std::vector<cv::Rect> mMouths;
};

/// Null, with a line in the log, when there is neither network nor cascade.
std::unique_ptr<Judge> makeJudge() {
    if (auto network = makeNetwork<ExpressionNetwork>())
        return std::make_unique<NetworkJudge>(std::move(network));
    auto cascade = std::make_unique<CascadeJudge>();
    if (!cascade->load())
        return nullptr;
    return cascade;
}

/// Says which judge is in use, once for as long as it stays the same one.
void tell(const char* name) {
    static std::atomic<const char*> told{nullptr};
    if (told.exchange(name) != name)
        __android_log_print(ANDROID_LOG_INFO, kTag, "smile engine: %s", name);
}

/// What is known of a face from the frames before.
struct Mood {
    cv::Rect place;
    float level;  // the smoothed happiness
    int unseen;   // frames since the last look
    bool smiles;
};

cv::Rect toRect(const __tag_rect& rect, cv::Size frame) {
    const auto inside = [](int32_t value, int size) { return std::clamp(value, int32_t{0}, size - 1); };
    return {cv::Point(inside(rect.left, frame.width), inside(rect.top, frame.height)),
            cv::Point(inside(rect.right, frame.width) + 1, inside(rect.bottom, frame.height) + 1)};
}

/// The distance of the middles, of the first one's width.
double distance(const cv::Rect& a, const cv::Rect& b) {
    const cv::Point both = a.tl() + a.br() - b.tl() - b.br();
    return cv::norm(both) / 2 / a.width;
}

}  // namespace

/// Lies in the block that the shot hands over, but for what OpenCV keeps.
class SmileEngine {
public:
    SmileEngine(int32_t height, std::unique_ptr<Judge> judge) : mHeight(height), mJudge(std::move(judge)) {
        tell(mJudge->name());
    }

    int32_t height() const { return mHeight; }

    void detect(const ASSD_IMAGE& image, const ASSD_FACE_INPUT& input, ASSD_SMILE_RESULT* result) {
        const cv::Mat luma = lumaOf(image.plane[0], image.width, image.height);
        const int faces = std::min(input.count, kMostFaces);
        Mood moods[kMostFaces];
        for (int i = 0; i < faces; ++i)
            moods[i] = moodOf(toRect(input.faces[i], luma.size()));
        std::copy_n(moods, faces, mMoods);
        mCount = faces;
        lookAtOne(luma);
        int smiles = 0;
        for (int i = 0; i < faces; ++i) {
            if (mMoods[i].smiles)
                mSmiles[smiles++] = input.faces[i];
        }
        *result = {mSmiles, 0, faces, smiles};
    }

private:
    /// What is known of the face at this place, or what there is to know of a new one.
    Mood moodOf(const cv::Rect& place) const {
        const Mood* const end = mMoods + mCount;
        const Mood* const known = std::min_element(mMoods, end, [&](const Mood& a, const Mood& b) {
            return distance(place, a.place) < distance(place, b.place);
        });
        if (known == end || distance(place, known->place) > 0.5)
            return {place, 0, kNever, false};
        return {place, known->level, std::min(known->unseen + 1, kNever), known->smiles};
    }

    /// One face a frame, the one that has waited longest, so that no frame takes longer than another.
    void lookAtOne(const cv::Mat& luma) {
        Mood* const end = mMoods + mCount;
        Mood* const mood =
            std::max_element(mMoods, end, [](const Mood& a, const Mood& b) { return a.unseen < b.unseen; });
        if (mood == end || mood->unseen < mJudge->pause())
            return;
        mood->unseen = 0;
        const bool large = std::min(mood->place.width, mood->place.height) >= kLeastFace;
        const float happiness = large ? mJudge->look(luma, mood->place) : 0;
        mood->level += mJudge->weight() * (happiness - mood->level);
        if (mood->level > kSmiles)
            mood->smiles = true;
        if (mood->level < kStops)
            mood->smiles = false;
    }

    static constexpr int kNever = 1000;  // frames

    const int32_t mHeight;
    const std::unique_ptr<Judge> mJudge;
    int mCount = 0;
    Mood mMoods[kMostFaces];
    __tag_rect mSmiles[kMostFaces];
};

}  // namespace kov::arc

using namespace kov::arc;

MRESULT ASSD_InitSmileEngine(MHandle manager, MHandle* engine, int32_t, int32_t height) {
    return guarded("ASSD_InitSmileEngine", [&] {
        if (!manager || !engine || !isUsable(height, height))
            return kBadArgument;
        std::unique_ptr<Judge> judge = makeJudge();
        if (!judge)
            return kNoCascade;
        auto* made = static_cast<MemoryManager*>(manager)->make<SmileEngine>(height, std::move(judge));
        if (!made)
            return kNoMemory;
        *engine = made;
        return kOk;
    });
}

MRESULT ASSD_SmileDetect(MHandle, MHandle engine, ASSD_IMAGE* image, ASSD_FACE_INPUT* faces, ASSD_SMILE_RESULT* result,
                         int32_t, int32_t) {
    return guarded("ASSD_SmileDetect", [&] {
        if (!engine || !image || !faces || !result || !image->plane[0] || faces->count < 0 ||
            (faces->count > 0 && !faces->faces))
            return kBadArgument;
        auto* const smile = static_cast<SmileEngine*>(engine);
        if (image->height != smile->height() || !isUsable(image->width, image->height))
            return kBadArgument;
        smile->detect(*image, *faces, result);
        return kOk;
    });
}

MRESULT ASSD_UninitSmileEngine(MHandle, MHandle* engine) {
    if (engine && *engine) {
        static_cast<SmileEngine*>(*engine)->~SmileEngine();
        *engine = nullptr;
    }
    return kOk;
}
