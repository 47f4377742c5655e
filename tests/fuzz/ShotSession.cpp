// A session of a camera service with a hostile vendor layer, hostile libraries and a hostile application, told by
// bytes.

#include "tests/fuzz/ShotSession.h"

#include <android/log.h>
#include <binder/MemoryBase.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "adaptor/KovCameraHardwareInterface.h"
#include "host/runtime/Log.h"
#include "tests/fuzz/Answers.h"
#include "tests/fuzz/HostileLibraries.h"

using namespace android;

namespace kov::test {

namespace {

constexpr uint8_t kAsUsual = 224;  // an answer below
constexpr int kDeepest = 3;        // steps within steps
constexpr int kMostNested = 200;   // of a session

constexpr int32_t kSizes[][2] = {{64, 48},       {64, 48},  {32, 24}, {160, 120}, {63, 47},      {1, 1},
                                 {0, 0},         {-1, 5},   {16, 16}, {34, 18},   {2, 2},        {30000, 30000},
                                 {INT32_MAX, 2}, {8, 2000}, {5, -9},  {240, 160}, {46341, 46341}};
constexpr const char* kFormats[] = {"yuv420sp", "yuv420p", "yuv420sp_custom", "yuv422i",  "rgb565", "jpeg",
                                    "",         nullptr,   "yuv422p",         "yuv422sp", "%s%n"};
constexpr int32_t kTypes[] = {0x10, 0x100, 0x80, 0x20, 0x40, 0x1, 0x2, 0, -1, 0x200, 0x1FF};
constexpr int32_t kNumbers[] = {0, 1, -1, 2, 3, 4, 100, INT32_MIN, INT32_MAX};

template <typename Value, size_t Count>
Value pick(const Value (&table)[Count], uint8_t which) {
    return table[which % Count];
}

/// A heap of C memory, that a sanitizer watches, or one without.
class Heap : public IMemoryHeap {
public:
    Heap(size_t size, bool hasMemory) : mBytes(hasMemory ? size : 0), mSize(size) {}
    int getHeapID() const override { return -1; }
    void* getBase() const override { return mBytes.empty() ? nullptr : mBytes.data(); }
    size_t getSize() const override { return mSize; }
    uint32_t getFlags() const override { return 0; }

private:
    mutable std::vector<uint8_t> mBytes;
    const size_t mSize;
};

sp<IMemory> region(size_t heapSize, ssize_t offset, size_t size, bool hasMemory = true) {
    return new MemoryBase(new Heap(heapSize, hasMemory), offset, size);
}

/// Memory of a frame, or what goes for one.
sp<IMemory> makeMemory(uint8_t how, size_t size) {
    constexpr ssize_t kFarthest = PTRDIFF_MAX;
    switch (how < 128 ? 0 : how % 16) {
        case 1:
            return nullptr;
        case 2:
            return region(size, 1, size);
        case 3:
            return region(8, 2, 3);
        case 4:
            return new MemoryBase(nullptr, 0, size);
        case 5:
            return region(size, 0, size, false);
        case 6:
            return region(size + 100, -50, size);
        case 7:
            return region(size, kFarthest, SIZE_MAX);
        case 8:
            return region(size + 1, 0, size + 1);
        case 9:
            return region(size, 16, SIZE_MAX - 8);
        case 10:
            return region(size + 9, 9, size - std::min<size_t>(size, 1));
        case 11:
            return region(size, 0, 0);
        default:
            return region(size + 24, 24, size);
    }
}

struct Receiver {
    notify_callback notify = nullptr;
    data_callback data = nullptr;
    data_callback_timestamp dataTimestamp = nullptr;
    void* user = nullptr;
};

/// The vendor layer. Any thread.
class HostileCamera : public CameraHardwareInterface {
public:
    HostileCamera() {
        params.setPreviewSize(96, 64);
        params.setPreviewFormat("yuv420sp");
        params.setPictureSize(64, 48);
        params.setPictureFormat("jpeg");
    }
    Receiver receiver(size_t back = 0) const {
        const std::lock_guard held(mLock);
        return back < mReceivers.size() ? mReceivers[mReceivers.size() - 1 - back] : Receiver();
    }
    void setParams(uint8_t preview, uint8_t formats, uint8_t picture) {
        const std::lock_guard held(mLock);
        const auto& size = kSizes[preview % std::size(kSizes)];
        const auto& pictureSize = kSizes[picture % std::size(kSizes)];
        params = CameraParameters();
        if (preview != 255)
            params.setPreviewSize(size[0], size[1]);
        if (const char* format = pick(kFormats, formats % 16))
            params.setPreviewFormat(format);
        if (picture != 255)
            params.setPictureSize(pictureSize[0], pictureSize[1]);
        if (const char* format = pick(kFormats, static_cast<uint8_t>(5 + formats / 16)))
            params.setPictureFormat(format);
        if (picture % 4)
            params.set(CameraParameters::KEY_JPEG_QUALITY, static_cast<int>(picture % 4 * 30 - 20));  // 10, 40, 70
    }
    /// Bytes of a frame of the present size, as far as a test wants to have so many.
    size_t frameSize() const {
        int width = 0;
        int height = 0;
        getParameters().getPreviewSize(&width, &height);
        const int64_t size = int64_t{width} * height * 3 / 2;
        return size > 0 && size < (1 << 18) ? static_cast<size_t>(size) : 4096;
    }

    void setCallbacks(notify_callback notify, data_callback data, data_callback_timestamp dataTimestamp,
                      void* user) override {
        status();
        {
            const std::lock_guard held(mLock);
            mReceivers.push_back({notify, data, dataTimestamp, user});
            if (mReceivers.size() > 64)
                mReceivers.pop_front();
        }
        status("setCallbacks stored");
    }
    sp<IMemoryHeap> getPreviewHeap() override { return status() ? nullptr : new Heap(64, true); }
    sp<IMemoryHeap> getRawHeap() override { return status() ? nullptr : new Heap(64, true); }
    void enableMsgType(int32_t) override { status(); }
    void disableMsgType(int32_t) override { status(); }
    bool msgTypeEnabled(int32_t) override { return !status(); }
    status_t startPreview() override { return status(); }
    void stopPreview() override { status(); }
    bool previewEnabled() override { return !status(); }
    status_t startRecording() override { return status(); }
    void stopRecording() override { status(); }
    bool recordingEnabled() override { return !status(); }
    void releaseRecordingFrame(const sp<IMemory>&) override { status(); }
    status_t autoFocus() override { return status(); }
    status_t cancelAutoFocus() override { return status(); }
    status_t takePicture() override { return status(); }
    status_t cancelPicture() override { return status(); }
    status_t setParameters(const CameraParameters& newParams) override {
        if (status())
            return BAD_VALUE;
        const std::lock_guard held(mLock);
        params = newParams;
        return NO_ERROR;
    }
    CameraParameters getParameters() const override {
        const std::lock_guard held(mLock);
        return params;
    }
    status_t sendCommand(int32_t, int32_t, int32_t) override { return status(); }
    void release() override { status(); }
    status_t dump(int, const Vector<String16>&) const override { return status(); }

private:
    static status_t status(const char* site = __builtin_FUNCTION()) {
        const uint32_t how = ask(site);
        if (how > 1)
            gAnswers->nested();
        return how ? -static_cast<status_t>(how) : NO_ERROR;
    }

    mutable std::mutex mLock;
    CameraParameters params;
    std::deque<Receiver> mReceivers;
};

sp<HostileCamera> gCamera;
std::atomic<int> gPictures{0};

/// What the threads of a session that does not let them run on their own will do.
std::deque<std::function<void()>> gWaiting;

/// One thread's part of a session.
class Actor : public Answers {
public:
    Actor(const uint8_t* bytes, size_t size, bool runsThreads)
        : mFront(bytes), mBack(bytes + size), mRunsThreads(runsThreads) {}

    void run(const std::function<void()>& afterwards = {}) {
        gAnswers = this;
        open();
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
        if (mAnswer)
            return mEnded ? 0 : mAnswer(site);
        if (mFront >= mBack || mEnded)
            return 0;
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
        // What is called may drop the reference.
        const sp<CameraHardwareInterface> adaptor = mAdaptor;
        switch (code) {
            case 0:
                if (adaptor.get())
                    adaptor->sendCommand(1000 + a % 17, b, c);
                break;
            case 1:
                if (adaptor.get())
                    adaptor->sendCommand(999 + a % 47, pick(kNumbers, b), pick(kNumbers, c));
                break;
            case 2:
                data(gCamera->receiver(), CAMERA_MSG_PREVIEW_FRAME, a);
                break;
            case 3:
                data(gCamera->receiver(), pick(kTypes, a), b);
                break;
            case 4:
                notify(gCamera->receiver(), pick(kTypes, a), b, c);
                break;
            case 5:
                timestamped(gCamera->receiver(), pick(kTypes, a), b);
                break;
            case 6:
                registerCallbacks(a);
                break;
            case 7:
                if (adaptor.get())
                    operate(*adaptor.get(), a);
                break;
            case 8:
                gCamera->setParams(a, b, c);
                break;
            case 9:
                runThread();
                break;
            case 10:
                advanceClock(a * 4);
                break;
            case 11:
                if (mAdaptor.get())
                    mAdaptor.clear();
                else
                    open();
                break;
            case 12:
                stray(a, b, c);
                break;
            case 13:
                for (int i = a % 32; i > 0; --i) {
                    advanceClock(b * 4);
                    data(gCamera->receiver(), CAMERA_MSG_PREVIEW_FRAME, 0);
                }
                break;
            default:
                break;
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

    void open() { mAdaptor = openKovCameraHardware(); }

    static void data(const Receiver& to, int32_t type, uint8_t memory) {
        if (to.data)
            to.data(type, makeMemory(memory, type == CAMERA_MSG_PREVIEW_FRAME ? gCamera->frameSize() : 600), to.user);
    }
    static void notify(const Receiver& to, int32_t type, uint8_t ext1, uint8_t ext2) {
        if (to.notify)
            to.notify(type, pick(kNumbers, ext1), pick(kNumbers, ext2), to.user);
    }
    static void timestamped(const Receiver& to, int32_t type, uint8_t memory) {
        if (to.dataTimestamp)
            to.dataTimestamp(INT64_MIN, type, makeMemory(memory, 600), to.user);
    }
    static void stray(uint8_t type, uint8_t who, uint8_t memory) {
        Receiver to = gCamera->receiver(who % 8);
        if (who % 16 == 15)
            to.user = nullptr;
        notify(to, pick(kTypes, type), 0, 0);
        data(to, pick(kTypes, type), memory);
        timestamped(to, pick(kTypes, type), memory);
    }

    void registerCallbacks(uint8_t nulls) {
        const sp<CameraHardwareInterface> adaptor = mAdaptor;
        if (!adaptor.get())
            return;
        adaptor->setCallbacks(nulls & 1 ? nullptr : +[](int32_t, int32_t, int32_t, void*) { received(); },
                              nulls & 2 ? nullptr : +[](int32_t type, const sp<IMemory>& memory, void*) {
                                  if (type == CAMERA_MSG_COMPRESSED_IMAGE && memory.get() && memory->size() > 0)
                                      ++gPictures;
                                  received();
                              },
                              nulls & 4 ? nullptr : +[](int64_t, int32_t, const sp<IMemory>&, void*) { received(); },
                              nulls & 8 ? nullptr : &gCamera);
    }
    /// The service in a callback.
    static void received() {
        if (ask("service") > 1)
            gAnswers->nested();
    }

    static void operate(CameraHardwareInterface& adaptor, uint8_t which) {
        switch (which % 21) {
            case 0:
                adaptor.startPreview();
                break;
            case 1:
                adaptor.stopPreview();
                break;
            case 2:
                adaptor.takePicture();
                break;
            case 3:
                adaptor.cancelPicture();
                break;
            case 4:
                adaptor.autoFocus();
                break;
            case 5:
                adaptor.cancelAutoFocus();
                break;
            case 6:
                adaptor.startRecording();
                break;
            case 7:
                adaptor.stopRecording();
                break;
            case 8:
                adaptor.recordingEnabled();
                break;
            case 9:
                adaptor.previewEnabled();
                break;
            case 10:
                adaptor.releaseRecordingFrame(which % 2 ? makeMemory(which, 32) : nullptr);
                break;
            case 11:
                adaptor.setParameters(adaptor.getParameters());
                break;
            case 12:
                adaptor.getPreviewHeap();
                break;
            case 13:
                adaptor.getRawHeap();
                break;
            case 14:
                adaptor.enableMsgType(which);
                break;
            case 15:
                adaptor.disableMsgType(which);
                break;
            case 16:
                adaptor.msgTypeEnabled(which);
                break;
            case 17:
                adaptor.release();
                break;
            case 18:
                adaptor.dump(-1, Vector<String16>());
                break;
            case 19:
                adaptor.useOverlay();
                break;
            default:
                adaptor.setOverlay(nullptr);
                break;
        }
    }

    /// Only at the top: a thread of the product may wait for the end of an earlier one, further out on this thread.
    void runThread() const {
        if (!mRunsThreads || mDepth > 1 || gWaiting.empty())
            return;
        const auto work = std::move(gWaiting.front());
        gWaiting.pop_front();
        work();
    }

    const uint8_t* mFront;
    const uint8_t* mBack;
    const bool mRunsThreads;
    std::function<uint32_t(const char* site)> mAnswer;
    bool mEnded = false;
    int mDepth = 0;
    int mNested = 0;
    sp<CameraHardwareInterface> mAdaptor;
};

void begin() {
    kov::host::setLogLevel(ANDROID_LOG_SILENT);
    gCamera = new HostileCamera;
}

[[noreturn]] void leftOver(const char* what, int count) {
    std::fprintf(stderr, "left over: %d %s\n", count, what);
    std::abort();
}

void end() {
    while (!gWaiting.empty()) {
        const auto work = std::move(gWaiting.front());
        gWaiting.pop_front();
        work();
    }
    waitForThreads();
    dropRefused();
    if (const size_t handles = handlesAlive())
        leftOver("handles", static_cast<int>(handles));
    if (gCamera->getStrongCount() != 1)
        leftOver("references to the vendor layer", gCamera->getStrongCount() - 1);
    gCamera.clear();
}

}  // namespace

void runSession(const uint8_t* bytes, size_t size) {
    begin();
    setThreadStarter([](std::function<void()> work) { gWaiting.push_back(std::move(work)); });
    if (size > 0 && bytes[0] == 255) {  // there is no vendor layer
        const sp<HostileCamera> aside = gCamera;
        gCamera.clear();
        const sp<CameraHardwareInterface> adaptor = openKovCameraHardware();
        gCamera = aside;
        Actor(bytes, size, true).run();
    } else {
        Actor(bytes, size, true).run();
    }
    end();
}

void runSession(const uint8_t* bytes, size_t size, std::function<uint32_t(const char* site)> answer,
                const std::function<void()>& afterwards) {
    begin();
    gPictures = 0;
    setThreadStarter([](std::function<void()> work) { gWaiting.push_back(std::move(work)); });
    Actor actor(bytes, size, true);
    actor.answerWith(std::move(answer));
    actor.run(afterwards);
    end();
}

void takeStep(const uint8_t (&bytes)[4]) {
    static_cast<Actor*>(gAnswers)->perform(bytes[0], bytes[1], bytes[2], bytes[3]);
}

int picturesReceived() {
    return gPictures;
}

void runSessionsAtOnce(const uint8_t* bytes, size_t size) {
    begin();
    setThreadStarter(nullptr);
    {
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i)
            threads.emplace_back([=] { Actor(bytes + size / 3 * i, size / 3, false).run(); });
        for (std::thread& thread : threads)
            thread.join();
    }
    end();
}

}  // namespace kov::test

sp<CameraHardwareInterface> openCameraHardware() {
    return kov::test::gCamera.get();
}
