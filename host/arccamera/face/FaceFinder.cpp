// The face network, and the cascade on upright and turned copies of the picture.

#include "host/arccamera/face/FaceFinder.h"

#include <opencv2/imgproc.hpp>

#include "host/arccamera/face/Engine.h"
#include "host/arccamera/face/Networks.h"

namespace kov::arc {

namespace {

constexpr double kScaleStep = 1.2;  // of the cascade
constexpr int kNeighbours = 4;

cv::Rect2f squareAt(cv::Point2f middle, float side) {
    return {middle.x - side / 2, middle.y - side / 2, side, side};
}

class NetworkFinder : public FaceFinder {
public:
    explicit NetworkFinder(std::unique_ptr<FaceNetwork> network) : mNetwork(std::move(network)) {}

    std::vector<Face> find(const cv::Mat& luma, float least, float) override {
        std::vector<Face> faces;
        for (const FoundFace& found : mNetwork->find(luma)) {
            // The network's places are right in height and somewhat wide.
            if (found.place.height >= least)
                faces.push_back({squareAt((found.place.tl() + found.place.br()) / 2, found.place.height), 0});
        }
        return faces;
    }

    /// It finds tilted faces as they are.
    const std::vector<float>& tilts() const override {
        static const std::vector<float> upright = {0};
        return upright;
    }

private:
    const std::unique_ptr<FaceNetwork> mNetwork;
};

class CascadeFinder : public FaceFinder {
public:
    bool load() { return loadCascade(mCascade, "haarcascade_frontalface_alt.xml"); }

    std::vector<Face> find(const cv::Mat& luma, float least, float tilt) override {
        const cv::Point2f middle(static_cast<float>(luma.cols) / 2, static_cast<float>(luma.rows) / 2);
        const cv::Matx23d upright(cv::getRotationMatrix2D(middle, tilt, 1));
        if (tilt != 0)
            cv::warpAffine(luma, mTurned, upright, luma.size(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
        const cv::Size smallest(cvRound(least), cvRound(least));
        mCascade.detectMultiScale(tilt != 0 ? mTurned : luma, mFound, kScaleStep, kNeighbours, 0, smallest);
        cv::Matx23d back;
        cv::invertAffineTransform(upright, back);
        std::vector<Face> faces;
        for (const cv::Rect& found : mFound) {
            const cv::Vec3d at(found.x + found.width / 2.0, found.y + found.height / 2.0, 1);
            const cv::Vec2d there = back * at;
            faces.push_back({squareAt({static_cast<float>(there[0]), static_cast<float>(there[1])},
                                      static_cast<float>(found.width)),
                             tilt});
        }
        return faces;
    }

    const std::vector<float>& tilts() const override {
        static const std::vector<float> turns = {0, 22, 0, -22};
        return turns;
    }

private:
    cv::CascadeClassifier mCascade;
    cv::Mat mTurned;
    std::vector<cv::Rect> mFound;
};

}  // namespace

std::unique_ptr<FaceFinder> FaceFinder::make() {
    if (auto network = makeNetwork<FaceNetwork>())
        return std::make_unique<NetworkFinder>(std::move(network));
    auto cascade = std::make_unique<CascadeFinder>();
    if (!cascade->load())
        return nullptr;
    return cascade;
}

}  // namespace kov::arc
