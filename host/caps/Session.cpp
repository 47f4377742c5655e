// A session of the effects engine: one source, the effects on it, and how to render.

#include "host/caps/Session.h"

#include <cmath>
#include <exception>
#include <utility>

#include "host/caps/JpegReader.h"

namespace kov::caps {

namespace {

cv::Size turnedSize(cv::Size size, int quarters) {
    return quarters % 2 ? cv::Size(size.height, size.width) : size;
}

}  // namespace

void Session::begin(Edit edit) {
    mEdit = edit;
    mEditSet = false;
    mNextEffect = mEffect;
    mNextQuarters = mQuarters;
}

Status Session::set(Edit edit, const Effect& effect, int quarters) {
    if (mEdit != edit)
        return Status::OutOfOrder;
    mNextEffect = effect;
    mNextQuarters = quarters;
    mEditSet = true;
    return Status::Good;
}

Status Session::setCartoon(bool on) {
    return set(Edit::Cartoon, {on ? Effect::Kind::Cartoon : Effect::Kind::None}, mQuarters);
}

Status Session::setStamp(int smoothness, int threshold) {
    if (smoothness < 0 || smoothness > kMostSmoothness || threshold < 0 || threshold > 255)
        return Status::BadArgument;
    return set(Edit::Stamp, {Effect::Kind::Stamp, smoothness, threshold}, mQuarters);
}

Status Session::setRotate(int degrees) {
    if (degrees % 90 != 0)
        return Status::BadArgument;
    return set(Edit::Rotate, mEffect, (degrees / 90 % 4 + 4) % 4);
}

Status Session::end(Edit edit) {
    if (mEdit != edit || !mEditSet)
        return Status::OutOfOrder;
    mEffect = mNextEffect;
    mQuarters = mNextQuarters;
    mEdit.reset();
    return Status::Good;
}

void Session::sketch(bool color) {
    mEffect = {color ? Effect::Kind::ColorSketch : Effect::Kind::GreySketch};
    mEdit.reset();
}

Status Session::setQuality(float quality) {
    if (!(quality >= 0 && quality <= 1))
        return Status::BadArgument;
    mQuality = std::max(1, static_cast<int>(std::lround(quality * 100)));
    return Status::Good;
}

cv::Size Session::size() const {
    return turnedSize(std::visit([](const auto& source) { return source.size; }, mSource), mQuarters);
}

std::optional<Picture> Session::load(cv::Size size) const {
    std::optional<Picture> picture;
    if (const auto* const jpeg = std::get_if<JpegSource>(&mSource))
        picture = readJpeg(jpeg->data, jpeg->bytes);
    else
        picture = readFrame(std::get<FrameSource>(mSource).data, std::get<FrameSource>(mSource).size);
    if (!picture)
        return {};
    return scaled(turned(*picture, mQuarters), evenSize(size));
}

Rendering::Rendering(Picture picture, const Session& session, cv::Size size, size_t mostBytes)
    : mPicture(std::move(picture)), mEffect(session.effect()), mWriter(size, session.quality(), mostBytes) {}

int Rendering::firstRow(int step) const {
    const int units = (mPicture.size().height + JpegWriter::kRows - 1) / JpegWriter::kRows;
    return std::min(units * step / kSteps * JpegWriter::kRows, mPicture.size().height);
}

Status Rendering::work(std::vector<uint8_t>& stream) {
    if (mSteps == 0)
        mLook = makeLook(mEffect, mPicture);
    const cv::Range rows(firstRow(mSteps), firstRow(mSteps + 1));
    if (!rows.empty() && !mWriter.write(drawBand(mLook.get(), mPicture, rows)))
        return Status::BufferFull;
    if (++mSteps < kSteps)
        return Status::Good;
    return mWriter.finish(stream) ? Status::Done : Status::BufferFull;
}

Status Rendering::step(std::vector<uint8_t>& stream) {
    if (mStatus != Status::Good)
        return mStatus;
    try {
        mStatus = work(stream);
    } catch (const std::exception&) {
        mStatus = Status::Internal;
    }
    return mStatus;
}

Status renderFrame(const Session& session, uint8_t* frame) {
    const cv::Size size = session.size();
    const std::optional<Picture> picture = session.load(size);
    if (!picture)
        return Status::BadJpeg;
    const std::unique_ptr<Look> look = makeLook(session.effect(), *picture);
    writeFrame(drawBand(look.get(), *picture, {0, size.height}), 0, frame, size);
    return Status::Good;
}

}  // namespace kov::caps
