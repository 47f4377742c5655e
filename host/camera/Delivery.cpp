// The working part of the camera: its state, its preview thread and its picture thread.

#include "host/camera/Delivery.h"

#include <array>
#include <cstring>
#include <ctime>
#include <memory>
#include <sstream>
#include <system_error>
#include <vector>

#include "host/camera/Exif.h"
#include "host/camera/Failure.h"

namespace kov::camera {

using namespace android;

namespace {

constexpr nsecs_t kSecond = 1000000000;
constexpr nsecs_t kFocusTime = 200000000;  // in the stream's time
// A frame that is later than this many frame times moves the whole schedule, instead of being made up for.
constexpr int kMostCatchUp = 2;

constexpr char kReleased[] = "the camera was released; open it again";

const char* yesNo(bool value) {
    return value ? "yes" : "no";
}

/// The threads of cameras that were shut down. Each ends soon. The next camera that is shut down joins those that have
/// ended, and the end of the process the others: they may be drawing, with what OpenCV throws away then.
class EndingThreads {
public:
    ~EndingThreads() {
        const AutoMutex guard(mLock);
        timespec until = {};
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_sec += 5;  // one may be in a callback that waits for whoever ends the process
        for (const pthread_t thread : mThreads)
            pthread_timedjoin_np(thread, nullptr, &until);
    }
    void add(const std::array<pthread_t, 2>& threads) {
        const AutoMutex guard(mLock);
        std::erase_if(mThreads, [](pthread_t thread) { return pthread_tryjoin_np(thread, nullptr) == 0; });
        mThreads.insert(mThreads.end(), threads.begin(), threads.end());
    }

private:
    Mutex mLock;
    std::vector<pthread_t> mThreads GUARDED_BY(mLock);
};
EndingThreads gEndingThreads;

}  // namespace

void Delivery::Ring::allocate(size_t bytes, const char* name) {
    heap = new MemoryHeapBase(bytes * kPlaces, 0, name);
    frameBytes = bytes;
    next = 0;
    lent.fill(false);
}

sp<IMemory> Delivery::Ring::place(int index) const {
    return new MemoryBase(heap, static_cast<ssize_t>(index * frameBytes), frameBytes);
}

int Delivery::Ring::takeFree() {
    for (int tried = 0; tried < kPlaces; ++tried) {
        const int index = next;
        next = (next + 1) % kPlaces;
        if (!lent[index])
            return index;
    }
    return -1;
}

Delivery::Delivery(std::unique_ptr<FrameSource> source, std::string sourceName, double speed)
    : mSourceName(std::move(sourceName)), mSpeed(speed), mSource(std::move(source)), mParameters(defaultParameters()) {
    std::string error;
    readSettings(mParameters, &mSettings, &error);
}

/// What a thread begins with, and holds until it ends.
struct Delivery::Thread {
    std::shared_ptr<Delivery> self;
    void (Delivery::*loop)();

    static void* run(void* thread) {
        const std::unique_ptr<Thread> own(static_cast<Thread*>(thread));
        (own->self.get()->*own->loop)();
        return nullptr;
    }
};

void Delivery::start() {
    // Nobody waits for them: the camera may be dropped on either of them, or under a lock that a callback waits for.
    const AutoMutex guard(mLock);
    for (size_t i = 0; i < mThreads.size(); ++i) {
        const auto loop = i == 0 ? &Delivery::previewLoop : &Delivery::pictureLoop;
        auto thread = std::make_unique<Thread>(Thread{shared_from_this(), loop});
        if (const int error = pthread_create(&mThreads[i], nullptr, Thread::run, thread.get()))
            throw std::system_error(error, std::generic_category());
        (void)thread.release();  // its own now
    }
}

void Delivery::shutDown() {
    const AutoMutex guard(mLock);
    if (!mShutDown)
        gEndingThreads.add(mThreads);
    mShutDown = true;
    mCallbacks = {};
    endPreview();
    mFocusing = false;
    mPictureAsked = false;
    mPictureRunning = false;
    ++mPictureNumber;
    mPreviewWork.broadcast();
    mPictureWork.broadcast();
}

void Delivery::setCallbacks(notify_callback notify, data_callback data, data_callback_timestamp dataTimestamp,
                            void* user) {
    const AutoMutex guard(mLock);
    if (!mShutDown)
        mCallbacks = {notify, data, dataTimestamp, user};
}

Delivery::Callbacks Delivery::callbacks() const {
    const AutoMutex guard(mLock);
    return mCallbacks;
}

CameraParameters Delivery::parameters() const {
    const AutoMutex guard(mLock);
    return mParameters;
}

status_t Delivery::setParameters(const CameraParameters& parameters) {
    CameraSettings settings;
    std::string error;
    if (!readSettings(parameters, &settings, &error)) {
        fail(error, "setParameters: ");
        return BAD_VALUE;
    }
    CameraParameters accepted = parameters;
    restoreSupportedValues(&accepted);
    const AutoMutex guard(mLock);
    if (mShutDown)
        return refuse(kReleased);
    const bool sameFrames = settings.preview == mSettings.preview && settings.previewLayout == mSettings.previewLayout;
    if (mPreviewing && !sameFrames)
        return refuse("setParameters: stop the preview before changing its size or format");
    if (!sameFrames)
        mPreviewRing = {};
    if (settings.picture != mSettings.picture)
        mRawHeap.clear();
    // Stream time goes on from where it is when the frame rate changes.
    mNextFrame = mNextFrame * settings.framesPerSecond / mSettings.framesPerSecond;
    mShownFrame = mShownFrame * settings.framesPerSecond / mSettings.framesPerSecond;
    mSettings = settings;
    mParameters = accepted;
    return NO_ERROR;
}

void Delivery::ensurePreviewRing() {
    if (!mPreviewRing.heap.get())
        mPreviewRing.allocate(mSettings.preview.frameBytes(), "preview");
}

void Delivery::ensureRawHeap() {
    if (!mRawHeap.get())
        mRawHeap = new MemoryHeapBase(mSettings.picture.frameBytes(), 0, "raw picture");
}

sp<IMemoryHeap> Delivery::previewHeap() {
    const AutoMutex guard(mLock);
    ensurePreviewRing();
    return mPreviewRing.heap;
}

sp<IMemoryHeap> Delivery::rawHeap() {
    const AutoMutex guard(mLock);
    ensureRawHeap();
    return mRawHeap;
}

status_t Delivery::startPreview() {
    const AutoMutex guard(mLock);
    if (mShutDown)
        return refuse(kReleased);
    if (mPreviewing)
        return NO_ERROR;
    ensurePreviewRing();
    mPreviewing = true;
    ++mSession;
    mDue = systemTime();
    mPreviewWork.broadcast();
    return NO_ERROR;
}

void Delivery::endPreview() {
    mPreviewing = false;
    mRecording = false;
    mPreviewWork.broadcast();
}

void Delivery::stopPreview() {
    const AutoMutex guard(mLock);
    endPreview();
}

bool Delivery::previewing() const {
    const AutoMutex guard(mLock);
    return mPreviewing;
}

status_t Delivery::startRecording() {
    const AutoMutex guard(mLock);
    if (mShutDown)
        return refuse(kReleased);
    if (!mPreviewing)
        return refuse("startRecording: start the preview first");
    if (mRecording)
        return NO_ERROR;
    mRecordingRing.allocate(mSettings.preview.frameBytes(), "recording");
    mRecording = true;
    return NO_ERROR;
}

void Delivery::stopRecording() {
    const AutoMutex guard(mLock);
    mRecording = false;
}

bool Delivery::recording() const {
    const AutoMutex guard(mLock);
    return mRecording;
}

void Delivery::releaseRecordingFrame(const sp<IMemory>& memory) {
    if (!memory.get())
        return;
    ssize_t offset = 0;
    const sp<IMemoryHeap> heap = memory->getMemory(&offset);
    const AutoMutex guard(mLock);
    // A frame of an earlier recording lies in a heap that is nobody's any more.
    if (heap.get() == mRecordingRing.heap.get() && heap.get())
        mRecordingRing.lent[static_cast<size_t>(offset) / mRecordingRing.frameBytes] = false;
}

status_t Delivery::autoFocus() {
    const AutoMutex guard(mLock);
    if (mShutDown)
        return refuse(kReleased);
    if (!mPreviewing)
        return refuse("autoFocus: start the preview first");
    mFocusing = true;
    mFocusDue = systemTime() + static_cast<nsecs_t>(kFocusTime / mSpeed);
    mPictureWork.broadcast();
    return NO_ERROR;
}

void Delivery::cancelAutoFocus() {
    const AutoMutex guard(mLock);
    mFocusing = false;
}

status_t Delivery::takePicture() {
    const AutoMutex guard(mLock);
    if (mShutDown)
        return refuse(kReleased);
    if (mPictureRunning)
        return refuse("takePicture: a picture is being taken; wait for it or cancel it");
    if (mRecording)
        return refuse("takePicture: stop the recording first");
    endPreview();
    ensureRawHeap();
    mPictureAsked = true;
    mPictureRunning = true;
    ++mPictureNumber;
    mPictureWork.broadcast();
    return NO_ERROR;
}

void Delivery::cancelPicture() {
    const AutoMutex guard(mLock);
    mPictureAsked = false;
    mPictureRunning = false;
    ++mPictureNumber;
}

cv::Mat Delivery::view(int64_t index, int frameRate, FrameSize size) {
    const AutoMutex guard(mSourceLock);
    cv::Mat picture = mSource->frame(static_cast<double>(index) / frameRate, {size.width, size.height});
    if (picture.empty())
        fail(mSource->error(), "the source broke: ");
    return picture;
}

void Delivery::notifyIfEnabled(int32_t message, int32_t ext1, int32_t ext2) {
    const Callbacks up = callbacks();
    if (up.notify && enabled(message))
        up.notify(message, ext1, ext2, up.user);
}

void Delivery::reportBrokenSource() {
    stopPreview();
    notifyIfEnabled(CAMERA_MSG_ERROR, UNKNOWN_ERROR, 0);
}

void Delivery::previewLoop() {
    FrameWriter writer;
    for (FrameJob job; waitForFrame(&job); job = {}) {
        if (!fillFrame(job, writer)) {
            reportBrokenSource();
            continue;
        }
        deliverRecording(job);
        deliverPreview(job);
    }
}

bool Delivery::waitForFrame(FrameJob* job) {
    const AutoMutex guard(mLock);
    while (!mShutDown) {
        if (!mPreviewing) {
            mPreviewWork.wait(mLock);
            continue;
        }
        const nsecs_t now = systemTime();
        if (now < mDue) {
            mPreviewWork.waitRelative(mLock, mDue - now);
            continue;
        }
        // Absolute times: a frame that comes a little late does not delay those after it.
        const auto frameTime = static_cast<nsecs_t>(kSecond / (mSettings.framesPerSecond * mSpeed));
        if (now - mDue > kMostCatchUp * frameTime) {
            ++mFramesLate;
            mDue = now;
        }
        mDue += frameTime;
        job->session = mSession;
        job->index = mNextFrame++;
        job->settings = mSettings;
        job->memory = mPreviewRing.place(mPreviewRing.takeFree());
        return true;
    }
    return false;
}

bool Delivery::fillFrame(const FrameJob& job, FrameWriter& writer) {
    const cv::Mat picture = view(job.index, job.settings.framesPerSecond, job.settings.preview);
    auto* frame = static_cast<uint8_t*>(job.memory->pointer());
    return !picture.empty() && frame && writer.write(picture, job.settings.previewLayout, frame);
}

void Delivery::deliverPreview(const FrameJob& job) {
    Callbacks up;
    {
        const AutoMutex guard(mLock);
        if (!mPreviewing || mSession != job.session)
            return;
        mShownFrame = job.index;
        up = mCallbacks;
    }
    if (up.data && enabled(CAMERA_MSG_PREVIEW_FRAME))
        up.data(CAMERA_MSG_PREVIEW_FRAME, job.memory, up.user);
}

void Delivery::deliverRecording(const FrameJob& job) {
    Callbacks up;
    sp<IMemory> memory;
    {
        const AutoMutex guard(mLock);
        if (!mRecording || mSession != job.session || !mCallbacks.dataTimestamp || !enabled(CAMERA_MSG_VIDEO_FRAME))
            return;
        const int index = mRecordingRing.takeFree();
        if (index < 0) {
            ++mRecordingDropped;
            return;
        }
        mRecordingRing.lent[index] = true;
        memory = mRecordingRing.place(index);
        up = mCallbacks;
    }
    std::memcpy(memory->pointer(), job.memory->pointer(), job.memory->size());
    up.dataTimestamp(systemTime(), CAMERA_MSG_VIDEO_FRAME, memory, up.user);
}

void Delivery::pictureLoop() {
    FrameWriter writer;
    mLock.lock();
    while (!mShutDown) {
        if (mPictureAsked) {
            mPictureAsked = false;
            // The moment of the frame that was seen last.
            const PictureJob job = {mPictureNumber, mShownFrame, mSettings.framesPerSecond, mSettings, mRawHeap};
            mLock.unlock();
            makePicture(job, writer);
            mLock.lock();
        } else if (mFocusing && systemTime() >= mFocusDue) {
            mFocusing = false;
            mLock.unlock();
            notifyIfEnabled(CAMERA_MSG_FOCUS, 1, 0);
            mLock.lock();
        } else if (mFocusing) {
            mPictureWork.waitRelative(mLock, mFocusDue - systemTime());
        } else {
            mPictureWork.wait(mLock);
        }
    }
    mLock.unlock();
}

bool Delivery::wanted(const PictureJob& job) const {
    const AutoMutex guard(mLock);
    return mPictureNumber == job.number;
}

void Delivery::makePicture(const PictureJob& job, FrameWriter& writer) {
    notifyIfEnabled(CAMERA_MSG_SHUTTER, 0, 0);
    if (!wanted(job))
        return;
    const cv::Mat picture = view(job.index, job.frameRate, job.settings.picture);
    if (picture.empty()) {
        finishPicture(job);
        reportBrokenSource();
        return;
    }
    {
        const AutoMutex guard(mSourceLock);
        mSource->pictureTaken();
    }
    sendPicture(job, CAMERA_MSG_RAW_IMAGE, !job.settings.jpeg, [&] { return makeRaw(job, picture, writer); });
    if (job.settings.jpeg)
        sendPicture(job, CAMERA_MSG_COMPRESSED_IMAGE, true, [&] { return makeJpeg(job, picture, writer); });
}

bool Delivery::finishPicture(const PictureJob& job) {
    const AutoMutex guard(mLock);
    if (mPictureNumber != job.number)
        return false;
    mPictureRunning = false;
    ++mPicturesTaken;
    return true;
}

template <typename Make>
void Delivery::sendPicture(const PictureJob& job, int32_t message, bool last, Make make) {
    if (!wanted(job))
        return;
    const sp<IMemory> memory = enabled(message) ? make() : sp<IMemory>();
    if (!(last ? finishPicture(job) : wanted(job)))
        return;
    const Callbacks up = callbacks();
    if (memory.get() && up.data && enabled(message))
        up.data(message, memory, up.user);
}

sp<IMemory> Delivery::makeRaw(const PictureJob& job, const cv::Mat& picture, FrameWriter& writer) {
    auto* frame = static_cast<uint8_t*>(job.rawHeap->base());
    if (frame && writer.write(picture, job.settings.pictureLayout, frame))
        return new MemoryBase(job.rawHeap, 0, job.settings.picture.frameBytes());
    fail("no memory for the raw picture");
    notifyIfEnabled(CAMERA_MSG_ERROR, UNKNOWN_ERROR, 0);
    return {};
}

sp<IMemory> Delivery::makeJpeg(const PictureJob& job, const cv::Mat& picture, FrameWriter& writer) {
    std::vector<uint8_t> bytes = writer.jpeg(picture, job.settings.jpegQuality);
    addExif(bytes, picture.cols, picture.rows, std::time(nullptr));
    const sp<MemoryHeapBase> heap = new MemoryHeapBase(bytes.size(), 0, "jpeg picture");
    if (heap->base()) {
        std::memcpy(heap->base(), bytes.data(), bytes.size());
        return new MemoryBase(heap, 0, bytes.size());
    }
    fail("the picture could not be compressed");
    notifyIfEnabled(CAMERA_MSG_ERROR, UNKNOWN_ERROR, 0);
    return {};
}

std::string Delivery::describe() const {
    const AutoMutex guard(mLock);
    std::ostringstream text;
    text << "VendorCamera\n  source: " << mSourceName << "\n  speed: " << mSpeed << "\n  released: " << yesNo(mShutDown)
         << "\n  preview: " << yesNo(mPreviewing) << "\n  frames made: " << mNextFrame
         << "\n  times late: " << mFramesLate << "\n  recording: " << yesNo(mRecording)
         << "\n  recording frames dropped: " << mRecordingDropped << "\n  pictures: " << mPicturesTaken
         << "\n  taking a picture: " << yesNo(mPictureRunning) << "\n  messages: 0x" << std::hex << mMessages.load()
         << "\n  parameters: " << mParameters.flatten().string() << '\n';
    return text.str();
}

}  // namespace kov::camera
