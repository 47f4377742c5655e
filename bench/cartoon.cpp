// The cartoon preview and picture: every effect, through shot and effects library.

#include <benchmark/benchmark.h>

#include <cstring>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "host/camera/PictureFormats.h"
#include "host/camera/scenes/Portrait.h"
#include "shots/Commands.h"
#include "shots/cartoon/ShotCartoon.h"
#include "tests/support/FakeCameraHardware.h"
#include "tests/support/ShotTest.h"

namespace {

using namespace android;

/// A cartoon shot over a vendor layer that does nothing, with an application that only counts pictures.
class Rig {
public:
    explicit Rig(int32_t effect) {
        mVendor->params.set(CameraParameters::KEY_JPEG_QUALITY, 95);
        mShot->setCallbacks([](int32_t, int32_t, int32_t, void*) {}, onData,
                            [](int64_t, int32_t, const sp<IMemory>&, void*) {}, this);
        mShot->sendCommand(CARTOON_SHOT_SELECT_EFFECT, effect, 0);
    }
    ~Rig() { retireShot(mShot, mShot->gate()); }

    void send(int32_t type, const sp<IMemory>& data) { mVendor->data(type, data); }
    int pictures = 0;

private:
    static void onData(int32_t type, const sp<IMemory>& data, void* self) {
        static_cast<Rig*>(self)->pictures += type == CAMERA_MSG_COMPRESSED_IMAGE && data->size() > 0;
    }

    const sp<kov::test::FakeCameraHardware> mVendor = new kov::test::FakeCameraHardware;
    ShotCartoon* const mShot = makeShot<ShotCartoon>(mVendor.get());
};

cv::Mat portrait(cv::Size size) {
    kov::camera::SourceOptions options("neutral=0");
    return kov::camera::Portrait(options).frame(2, size);
}

void preview(benchmark::State& state) {
    const cv::Size size(640, 480);
    Rig rig(static_cast<int32_t>(state.range(0)));
    const sp<IMemory> source = kov::test::makeMemory(static_cast<size_t>(size.area()) * 3 / 2);
    const sp<IMemory> frame = kov::test::makeMemory(source->size());
    kov::camera::FrameWriter().write(portrait(size), kov::camera::PixelLayout::Yuv420sp,
                                     static_cast<uint8_t*>(source->pointer()));
    for (auto _ : state) {
        state.PauseTiming();  // the frame was rendered in place
        std::memcpy(frame->pointer(), source->pointer(), frame->size());
        state.ResumeTiming();
        rig.send(CAMERA_MSG_PREVIEW_FRAME, frame);
    }
}

void picture(benchmark::State& state) {
    Rig rig(static_cast<int32_t>(state.range(0)));
    const std::vector<uint8_t> jpeg = kov::camera::FrameWriter().jpeg(portrait({2560, 1920}), 95);
    const sp<IMemory> memory = kov::test::makeMemory(jpeg.size());
    std::memcpy(memory->pointer(), jpeg.data(), jpeg.size());
    int sent = 0;
    for (auto _ : state) {
        rig.send(CAMERA_MSG_COMPRESSED_IMAGE, memory);
        ++sent;
    }
    if (rig.pictures != sent)
        state.SkipWithError("not rendered");
}

constexpr int32_t kNone = 4;

BENCHMARK(preview)->Name("cartoon preview frame, 640x480/as it is")->Arg(kNone)->UseRealTime();
BENCHMARK(preview)->Name("cartoon preview frame, 640x480/cartoon")->Arg(ShotCartoon::kCartoon)->UseRealTime();
BENCHMARK(preview)->Name("cartoon preview frame, 640x480/sketch")->Arg(ShotCartoon::kSketchColor)->UseRealTime();
BENCHMARK(preview)->Name("cartoon preview frame, 640x480/grey sketch")->Arg(ShotCartoon::kSketchGray)->UseRealTime();
BENCHMARK(preview)->Name("cartoon preview frame, 640x480/stamp")->Arg(ShotCartoon::kStamp)->UseRealTime();
BENCHMARK(picture)->Name("cartoon picture, 2560x1920/as it is")->Arg(kNone)->UseRealTime();
BENCHMARK(picture)->Name("cartoon picture, 2560x1920/cartoon")->Arg(ShotCartoon::kCartoon)->UseRealTime();
BENCHMARK(picture)->Name("cartoon picture, 2560x1920/sketch")->Arg(ShotCartoon::kSketchColor)->UseRealTime();
BENCHMARK(picture)->Name("cartoon picture, 2560x1920/grey sketch")->Arg(ShotCartoon::kSketchGray)->UseRealTime();
BENCHMARK(picture)->Name("cartoon picture, 2560x1920/stamp")->Arg(ShotCartoon::kStamp)->UseRealTime();

}  // namespace
