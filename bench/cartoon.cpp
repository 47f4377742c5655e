// The cartoon preview and picture: every effect, through shot and effects library.

#include <benchmark/benchmark.h>

#include <cstring>
#include <opencv2/imgproc.hpp>
#include <opencv2/photo.hpp>
#include <string>
#include <utility>
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
    explicit Rig(int32_t effect, cv::Size preview = {640, 480}) {
        mVendor->params.setPreviewSize(preview.width, preview.height);
        mVendor->params.set(CameraParameters::KEY_JPEG_QUALITY, 95);
        mShot = makeShot<ShotCartoon>(mVendor.get());  // which reads the sizes
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
    ShotCartoon* mShot = nullptr;
};

cv::Mat portrait(cv::Size size) {
    kov::camera::SourceOptions options("neutral=0");
    return kov::camera::Portrait(options).frame(2, size);
}

void preview(benchmark::State& state) {
    const cv::Size size(static_cast<int>(state.range(1)), static_cast<int>(state.range(2)));
    Rig rig(static_cast<int32_t>(state.range(0)), size);
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

/// What OpenCV's photo module does for the same frame.
void stylization(benchmark::State& state) {
    const cv::Mat frame = portrait({static_cast<int>(state.range(1)), static_cast<int>(state.range(2))});
    cv::Mat styled;
    for (auto _ : state)
        cv::stylization(frame, styled);
}

[[maybe_unused]] const bool kPreviews = [] {
    const std::pair<const char*, int32_t> effects[] = {{"cartoon", ShotCartoon::kCartoon},
                                                       {"sketch", ShotCartoon::kSketchColor},
                                                       {"grey sketch", ShotCartoon::kSketchGray},
                                                       {"stamp", ShotCartoon::kStamp}};
    for (const cv::Size size : {cv::Size(320, 240), {640, 480}, {1280, 720}, {1920, 1080}}) {
        const std::string group =
            "cartoon preview frame, " + std::to_string(size.width) + "x" + std::to_string(size.height) + "/";
        const auto add = [&](const char* name, void (*run)(benchmark::State&), int32_t effect) {
            benchmark::RegisterBenchmark((group + name).c_str(), run)
                ->Args({effect, size.width, size.height})
                ->UseRealTime();
        };
        add("cv::stylization", stylization, kNone);
        for (const auto& [name, effect] : effects)
            add(name, preview, effect);
        add("as it is", preview, kNone);
    }
    return true;
}();
BENCHMARK(picture)->Name("cartoon picture, 2560x1920/as it is")->Arg(kNone)->UseRealTime();
BENCHMARK(picture)->Name("cartoon picture, 2560x1920/cartoon")->Arg(ShotCartoon::kCartoon)->UseRealTime();
BENCHMARK(picture)->Name("cartoon picture, 2560x1920/sketch")->Arg(ShotCartoon::kSketchColor)->UseRealTime();
BENCHMARK(picture)->Name("cartoon picture, 2560x1920/grey sketch")->Arg(ShotCartoon::kSketchGray)->UseRealTime();
BENCHMARK(picture)->Name("cartoon picture, 2560x1920/stamp")->Arg(ShotCartoon::kStamp)->UseRealTime();

}  // namespace
