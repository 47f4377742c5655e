// Preview frames as JPEG, encoded once for all who look.

#include "tools/kovcam/live/PreviewEncoder.h"

#include <turbojpeg.h>

#include <array>
#include <bit>
#include <cstring>
#include <utility>

namespace kov::live {

using android::AutoMutex;

namespace {

template <typename Number>
void put(std::string& packet, size_t at, Number value) {
    static_assert(std::endian::native == std::endian::little);
    std::memcpy(packet.data() + at, &value, sizeof value);
}

}  // namespace

PreviewEncoder::PreviewEncoder(Hooks hooks, int quality)
    : mHooks(std::move(hooks)), mQuality(quality), mCompressor(tjInitCompress()), mThread([this] { run(); }) {}

PreviewEncoder::~PreviewEncoder() {
    {
        const AutoMutex held(mLock);
        mStop = true;
    }
    mChanged.broadcast();
    mThread.join();
    tjDestroy(mCompressor);
}

void PreviewEncoder::onFrame(const cam::Frame& frame) {
    if (!frame.bytes || frame.width <= 0 || !mHooks.wanted())
        return;
    {
        const AutoMutex held(mLock);
        mNext.bytes.assign(frame.bytes, frame.bytes + frame.size);
        mNext.width = frame.width;
        mNext.height = frame.height;
        mNext.layout = frame.layout;
        mNext.number = frame.number;
        mNext.deliveredUs = mHooks.nowUs();
        mWaiting = true;
    }
    mChanged.signal();
}

void PreviewEncoder::run() {
    Copy frame;
    for (;;) {
        {
            const AutoMutex held(mLock);
            while (!mWaiting && !mStop)
                mChanged.wait(mLock);
            if (mStop)
                return;
            std::swap(frame, mNext);
            mWaiting = false;
        }
        if (LiveFramePtr packet = encode(frame))
            mHooks.show(std::move(packet));
    }
}

LiveFramePtr PreviewEncoder::encode(const Copy& frame) {
    const size_t luma = static_cast<size_t>(frame.width) * frame.height;
    const size_t quarter = luma / 4;
    const uint8_t* u = frame.bytes.data() + luma;
    const uint8_t* v = u + quarter;
    if (frame.layout == cam::PixelLayout::Yuv420sp) {
        mChroma.resize(2 * quarter);
        for (size_t i = 0; i < quarter; ++i) {
            mChroma[quarter + i] = u[2 * i];
            mChroma[i] = u[2 * i + 1];
        }
        u = mChroma.data();
        v = u + quarter;
    }
    mJpeg.resize(tjBufSize(frame.width, frame.height, TJSAMP_420));
    std::array<const uint8_t*, 3> planes = {frame.bytes.data(), u, v};
    const std::array<int, 3> strides = {frame.width, frame.width / 2, frame.width / 2};
    uint8_t* jpeg = mJpeg.data();
    unsigned long size = mJpeg.size();
    if (tjCompressFromYUVPlanes(mCompressor, planes.data(), frame.width, strides.data(), frame.height, TJSAMP_420,
                                &jpeg, &size, mQuality, TJFLAG_NOREALLOC | TJFLAG_FASTDCT) != 0)
        return nullptr;
    auto packet = std::make_shared<LiveFrame>();
    packet->packet.resize(LiveFrame::kHead + size);
    put(packet->packet, 0, static_cast<uint32_t>(frame.number));
    put(packet->packet, 4, static_cast<uint16_t>(frame.width));
    put(packet->packet, 6, static_cast<uint16_t>(frame.height));
    put(packet->packet, 8, frame.deliveredUs);
    std::memcpy(packet->packet.data() + LiveFrame::kHead, jpeg, size);
    put(packet->packet, 16, mHooks.nowUs());
    return packet;
}

}  // namespace kov::live
