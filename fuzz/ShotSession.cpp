// A session of a camera service with a hostile vendor layer, hostile libraries and a hostile application, told by
// bytes.

#include "fuzz/ShotSession.h"

#include <android/log.h>
#include <cutils/properties.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <future>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "adaptor/KovCameraHardwareInterface.h"
#include "host/runtime/Log.h"
#include "tests/support/Answers.h"
#include "tests/support/FakeCameraHardware.h"
#include "tests/support/FakeSystem.h"
#include "tests/support/Handles.h"
#include "tests/support/Recorder.h"
#include "tests/support/Region.h"

using namespace android;

int property_get(const char*, char* value, const char* default_value) {
    const uint32_t how = kov::test::ask();
    return std::snprintf(value, PROPERTY_VALUE_MAX, "%s", how == 0 ? default_value : how % 2 ? "XSA" : "");
}

namespace kov::test {

// What the fakes would tell a test is not even made into text.
void record(std::string) {}
std::string text(const char*, ...) {
    return {};
}

namespace {

using Camera = CameraHardwareInterface;

constexpr uint8_t kAsUsual = 224;        // an answer below
constexpr int kDeepest = 3;              // steps within steps
constexpr int kMostNested = 200;         // of a session
constexpr size_t kMostMemory = 2 << 20;  // more the machine does not have

constexpr int32_t kSizes[][2] = {{64, 48},       {64, 48},  {32, 24}, {160, 120}, {63, 47},      {1, 1},
                                 {0, 0},         {-1, 5},   {16, 16}, {34, 18},   {2, 2},        {30000, 30000},
                                 {INT32_MAX, 2}, {8, 2000}, {5, -9},  {240, 160}, {46341, 46341}};
constexpr const char* kFormats[] = {"yuv420sp", "yuv420p", "yuv420sp_custom", "yuv422i",  "rgb565", "jpeg",
                                    "",         nullptr,   "yuv422p",         "yuv422sp", "%s%n"};
constexpr int32_t kTypes[] = {0x10, 0x100, 0x80, 0x20, 0x40, 0x1, 0x2, 0, -1, 0x200, 0x1FF};
constexpr int32_t kNumbers[] = {0, 1, -1, 2, 3, 4, 100, INT32_MIN, INT32_MAX};

template <typename Value, size_t Count>
const Value& pick(const Value (&table)[Count], uint8_t which) {
    return table[which % Count];
}

struct InProduct {
    explicit InProduct(bool is) : before(std::exchange(gInProduct, is)) {}
    ~InProduct() { gInProduct = before; }
    const bool before;
};

/// Memory of a frame, or what goes for one.
sp<IMemory> makeMemory(uint8_t how, size_t size) {
    const InProduct outside(false);
    constexpr ssize_t kFarthest = PTRDIFF_MAX;
    const struct {
        size_t heap;  // 0 for one without memory
        ssize_t offset;
        size_t size;
    } regions[] = {{size + 24, 24, size},
                   {0, 0, size},
                   {size, 1, size},
                   {8, 2, 3},
                   {size + 100, -50, size},
                   {size, kFarthest, SIZE_MAX},
                   {size + 1, 0, size + 1},
                   {size, 16, SIZE_MAX - 8},
                   {size + 9, 9, size - std::min<size_t>(size, 1)},
                   {size, 0, 0}};
    const uint8_t which = how < 128 ? 0 : how % 12;
    if (which == 10)
        return nullptr;
    if (which == 11)
        return new MemoryBase(nullptr, 0, size);
    return new MemoryBase(new PlainHeap(regions[which].heap), regions[which].offset, regions[which].size);
}

/// The vendor layer. Any thread.
class HostileCamera : public FakeCameraHardware {
public:
    HostileCamera() {
        flag = true;
        previewHeap = rawHeap = new PlainHeap(64);
        params.setPreviewSize(96, 64);
        params.setPictureSize(64, 48);
    }
    /// The receiver that was registered last, or one of those before.
    Receiver past(size_t back) const {
        const std::lock_guard held(mLock);
        return back < mPast.size() ? mPast[mPast.size() - 1 - back] : Receiver();
    }
    void setParams(uint8_t preview, uint8_t formats, uint8_t picture) {
        const InProduct outside(false);
        CameraParameters made;
        if (const auto& size = pick(kSizes, preview); preview != 255)
            made.setPreviewSize(size[0], size[1]);
        if (const char* format = pick(kFormats, formats % 16))
            made.setPreviewFormat(format);
        if (const auto& size = pick(kSizes, picture); picture != 255)
            made.setPictureSize(size[0], size[1]);
        if (const char* format = pick(kFormats, static_cast<uint8_t>(5 + formats / 16)))
            made.setPictureFormat(format);
        if (picture % 4)
            made.set(CameraParameters::KEY_JPEG_QUALITY, static_cast<int>(picture % 4 * 30 - 20));  // 10, 40, 70
        const std::lock_guard held(mLock);
        params = made;
    }
    /// Bytes of a frame of the present size, as far as a test wants to have so many.
    size_t frameSize() const {
        const InProduct outside(false);
        int width = 0;
        int height = 0;
        getParameters().getPreviewSize(&width, &height);
        const int64_t size = int64_t{width} * height * 3 / 2;
        return size > 0 && size < (1 << 18) ? static_cast<size_t>(size) : 4096;
    }
    bool msgTypeEnabled(int32_t) override { return within("msgTypeEnabled") == NO_ERROR; }

private:
    status_t within(const char* operation) override {
        const InProduct outside(false);
        const uint32_t how = ask(operation);
        if (std::string_view(operation) == "setCallbacks stored") {
            const std::lock_guard held(mLock);
            mPast.push_back(*this);
            if (mPast.size() > 64)
                mPast.pop_front();
        }
        if (how > 1)
            gAnswers->nested();
        return how ? -static_cast<status_t>(how) : NO_ERROR;
    }

    std::deque<Receiver> mPast;
};

sp<HostileCamera> gCamera;
std::atomic<int> gPictures{0};
std::atomic<int64_t> gMilliseconds{1000000};

/// The product's threads. They run at once, or where a session that has one thread gets the result of the oldest.
std::launch gPolicy;
std::mutex gThreadsLock;
std::deque<std::future<void>> gThreads;

bool runOldestThread() {
    std::unique_lock held(gThreadsLock);
    if (gThreads.empty())
        return false;
    std::future<void> thread = std::move(gThreads.front());
    gThreads.pop_front();
    held.unlock();
    thread.get();
    return true;
}

const std::function<void(Camera&)> kOperations[] = {
    &Camera::startPreview,
    &Camera::stopPreview,
    &Camera::takePicture,
    &Camera::cancelPicture,
    &Camera::autoFocus,
    &Camera::cancelAutoFocus,
    &Camera::startRecording,
    &Camera::stopRecording,
    &Camera::recordingEnabled,
    &Camera::previewEnabled,
    [](Camera& camera) { camera.releaseRecordingFrame(makeMemory(0, 32)); },
    [](Camera& camera) { camera.setParameters(camera.getParameters()); },
    &Camera::getPreviewHeap,
    &Camera::getRawHeap,
    [](Camera& camera) { camera.enableMsgType(14); },
    [](Camera& camera) { camera.disableMsgType(15); },
    [](Camera& camera) { camera.msgTypeEnabled(16); },
    &Camera::release,
    [](Camera& camera) { camera.dump(-1, Vector<String16>()); },
    &Camera::useOverlay,
    [](Camera& camera) { camera.setOverlay(nullptr); }};

/// One thread's part of a session.
class Actor : public Answers {
public:
    Actor(const uint8_t* bytes, size_t size) : mFront(bytes), mBack(bytes + size) {}

    void run(const std::function<void()>& afterwards = {}) {
        gAnswers = this;
        mAdaptor = openKovCameraHardware();
        registerCallbacks(0);
        while (step()) {
        }
        mEnded = true;  // from now on everything behaves
        if (afterwards)
            afterwards();
        mAdaptor.clear();
        gAnswers = nullptr;
    }

    /// Replaces the answers from the back.
    void answerWith(std::function<uint32_t(const char* site)> answer) { mAnswer = std::move(answer); }

    uint32_t next(const char* site) override {
        if (mEnded || (!mAnswer && mFront >= mBack))
            return 0;
        if (mAnswer)
            return mAnswer(site);
        const uint8_t answer = *--mBack;
        return answer < kAsUsual ? 0 : answer - kAsUsual + 1;
    }
    void nested() override {
        if (mDepth < kDeepest && mNested < kMostNested && !mEnded) {
            ++mNested;
            step();
        }
    }

    /// One step, as ShotSession.h tells it.
    void perform(int code, uint8_t a, uint8_t b, uint8_t c) {
        const sp<Camera> adaptor = mAdaptor;  // what is called may drop the reference
        const Receiver receiver = gCamera->receiver();
        const bool isFrame = code == 2 || code == 13 || pick(kTypes, a) == CAMERA_MSG_PREVIEW_FRAME;
        const size_t size = isFrame ? gCamera->frameSize() : 600;
        if (!adaptor.get() && (code < 2 || code == 7))
            return;
        const InProduct inside(true);
        switch (code) {
            case 0:
                return (void)adaptor->sendCommand(1000 + a % 17, b, c);
            case 1:
                return (void)adaptor->sendCommand(999 + a % 47, pick(kNumbers, b), pick(kNumbers, c));
            case 2:
                return receiver.data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(a, size));
            case 3:
                return receiver.data(pick(kTypes, a), makeMemory(b, size));
            case 4:
                return receiver.notify(pick(kTypes, a), pick(kNumbers, b), pick(kNumbers, c));
            case 5:
                return receiver.dataTimestamp(INT64_MIN, pick(kTypes, a), makeMemory(b, 600));
            case 6:
                return registerCallbacks(a);
            case 7:
                return pick(kOperations, a)(*adaptor.get());
            case 8:
                return gCamera->setParams(a, b, c);
            case 9:  // not further in: a thread of the product may wait for the end of an earlier one, further out
                return (void)(gPolicy == std::launch::deferred && mDepth < 2 && runOldestThread());
            case 10:
                return (void)(gMilliseconds += a * 4);
            case 11:
                return (void)(mAdaptor = adaptor.get() ? nullptr : openKovCameraHardware());
            case 12:
                return stray(pick(kTypes, a), b, c);
            default:
                for (int i = a % 32; i > 0; --i) {
                    gMilliseconds += b * 4;
                    gCamera->receiver().data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(0, gCamera->frameSize()));
                }
        }
    }

private:
    bool step() {
        if (mBack - mFront < 4)
            return false;
        ++mDepth;
        const uint8_t* const bytes = mFront;
        mFront += 4;
        perform(bytes[0] % 14, bytes[1], bytes[2], bytes[3]);
        --mDepth;
        return true;
    }

    static void stray(int32_t type, uint8_t who, uint8_t memory) {
        Receiver to = gCamera->past(who % 8);
        if (who % 16 == 15)
            to.user = nullptr;
        to.notify(type);
        to.data(type, makeMemory(memory, type == CAMERA_MSG_PREVIEW_FRAME ? gCamera->frameSize() : 600));
        to.dataTimestamp(INT64_MIN, type, makeMemory(memory, 600));
    }

    void registerCallbacks(uint8_t nulls) {
        const sp<Camera> adaptor = mAdaptor;
        if (!adaptor.get())
            return;
        adaptor->setCallbacks(nulls & 1 ? nullptr : +[](int32_t, int32_t, int32_t, void*) { received(); },
                              nulls & 2 ? nullptr : +[](int32_t type, const sp<IMemory>& memory, void*) {
                                  gPictures += type == CAMERA_MSG_COMPRESSED_IMAGE && memory.get() && memory->size() > 0;
                                  received();
                              },
                              nulls & 4 ? nullptr : +[](int64_t, int32_t, const sp<IMemory>&, void*) { received(); },
                              nulls & 8 ? nullptr : &gCamera);
    }
    /// The service in a callback.
    static void received() {
        const InProduct outside(false);
        if (ask("service") > 1)
            gAnswers->nested();
    }

    const uint8_t* mFront;
    const uint8_t* mBack;
    std::function<uint32_t(const char* site)> mAnswer;
    bool mEnded = false;
    int mDepth = 0;
    int mNested = 0;
    sp<Camera> mAdaptor;
};

/// A vendor layer and a system for the actors of a session.
void runWith(std::launch policy, const std::function<void()>& actors) {
    kov::host::setLogLevel(ANDROID_LOG_SILENT);
    gPolicy = policy;
    fakeSystem() = {
        .now = [](int) { return gMilliseconds * 1000000; },
        .sleep = [](int64_t microseconds) { gMilliseconds += microseconds / 1000; },
        .wait = [](Condition& condition, Mutex& held, int64_t) REQUIRES(held) { condition.waitRelative(held, 1000); },
        .allowsMemory = [](size_t size) { return !ask("allocate") && size <= kMostMemory; },
        .allowsHeap = [](size_t size) { return !ask("newHeap") && size <= kMostMemory; },
        .startThread =
            [](std::function<void()> thread) {
                const InProduct outside(false);
                if (ask("startThread"))
                    return false;
                const std::lock_guard held(gThreadsLock);
                gThreads.push_back(std::async(gPolicy, std::move(thread)));
                return true;
            }};
    gCamera = new HostileCamera;
    FakeCameraHardware::setNext(gCamera.get());
    actors();
    while (runOldestThread()) {
    }
    FakeCameraHardware::setNext(nullptr);
    const std::string owed = handlesOwed();
    const int references = gCamera->getStrongCount() - 1;
    if (!owed.empty() || references) {
        std::fprintf(stderr, "left over:%s, %d references to the vendor layer\n", owed.c_str(), references);
        std::abort();
    }
    gCamera.clear();
}

}  // namespace

void runSession(const uint8_t* bytes, size_t size) {
    runWith(std::launch::deferred, [=] {
        sp<Camera> adaptor;  // over no vendor layer
        if (size > 0 && bytes[0] == 255) {
            FakeCameraHardware::setNext(nullptr);
            adaptor = openKovCameraHardware();
            FakeCameraHardware::setNext(gCamera.get());
        }
        Actor(bytes, size).run();
    });
}

void runSession(const uint8_t* bytes, size_t size, std::function<uint32_t(const char* site)> answer,
                const std::function<void()>& afterwards) {
    runWith(std::launch::deferred, [&] {
        gPictures = 0;
        Actor actor(bytes, size);
        actor.answerWith(std::move(answer));
        actor.run(afterwards);
    });
}

void takeStep(const uint8_t (&bytes)[4]) {
    static_cast<Actor*>(gAnswers)->perform(bytes[0], bytes[1], bytes[2], bytes[3]);
}

int picturesReceived() {
    return gPictures;
}

void runSessionsAtOnce(const uint8_t* bytes, size_t size) {
    runWith(std::launch::async, [=] {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 3; ++i)
            threads.emplace_back([=] { Actor(bytes + size / 3 * i, size / 3).run(); });
    });
}

}  // namespace kov::test
