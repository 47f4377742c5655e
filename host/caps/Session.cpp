// A session of the effects engine: one source, the effects on it, and how to render.

#include "host/caps/Session.h"

#include <cmath>
#include <exception>
#include <mutex>
#include <utility>

#include "host/caps/JpegReader.h"

namespace kov::caps {

namespace {

cv::Size turnedSize(cv::Size size, int quarters) {
    return quarters % 2 ? cv::Size(size.height, size.width) : size;
}

/// What a frame is rendered with.
struct FrameTools {
    Effect::Kind kind = Effect::Kind::None;
    std::unique_ptr<Look> look;  // null for none
    Picture picture;
};

/// The tools of the last frame. A preview renders frame after frame in sessions of their own; with the tools it keeps
/// their memory.
struct Spare {
    std::mutex lock;
    FrameTools tools;  // guarded by the lock
};
Spare& spare() {
    static Spare* const instance = new Spare;  // used by threads that outlive static objects
    return *instance;
}

FrameTools takeFrameTools(Effect::Kind kind) {
    FrameTools tools;
    {
        const std::lock_guard held(spare().lock);
        std::swap(tools, spare().tools);
    }
    if (tools.kind != kind)
        return {kind, makeLook(kind), {}};
    return tools;
}

void keepFrameTools(FrameTools tools) {
    const std::lock_guard held(spare().lock);
    std::swap(tools, spare().tools);
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

std::optional<Picture> Session::read(Picture room) const {
    if (const auto* const jpeg = std::get_if<JpegSource>(&mSource))
        room = readJpeg(jpeg->data, jpeg->bytes).value_or(Picture());
    else
        readFrame(std::get<FrameSource>(mSource).data, std::get<FrameSource>(mSource).size, room);
    return room.size().empty() ? std::nullopt : std::optional(turned(room, mQuarters));
}

std::optional<Picture> Session::load(cv::Size size) const {
    std::optional<Picture> picture = read();
    if (!picture)
        return {};
    *picture = scaled(*picture, evenSize(size));
    if (std::holds_alternative<FrameSource>(mSource))
        picture->y = picture->y.clone();
    return picture;
}

Rendering::Rendering(Picture picture, const Session& session, cv::Size size, size_t mostBytes)
    : mPicture(std::move(picture)), mEffect(session.effect()), mWriter(size, session.quality(), mostBytes) {}

int Rendering::firstRow(int step) const {
    const int units = (mPicture.size().height + JpegWriter::kRows - 1) / JpegWriter::kRows;
    return std::min(units * step / kSteps * JpegWriter::kRows, mPicture.size().height);
}

Status Rendering::work(std::vector<uint8_t>& stream) {
    if (mSteps == 0) {
        mLook = makeLook(mEffect.kind);
        if (mLook)
            mLook->prepare(mPicture, mEffect, kPictureDetail);
    }
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
    const Effect& effect = session.effect();
    FrameTools tools = takeFrameTools(effect.kind);
    std::optional<Picture> picture = session.read(std::move(tools.picture));
    if (!picture)
        return Status::BadJpeg;
    if (tools.look) {
        tools.look->prepare(*picture, effect, kFrameDetail);
        drawFrame(*tools.look, size, frame);
    } else {
        writeFrame(*picture, 0, frame, size);
    }
    tools.picture = std::move(*picture);
    tools.picture.y.release();  // it may be the caller's
    keepFrameTools(std::move(tools));
    return Status::Good;
}

}  // namespace kov::caps
