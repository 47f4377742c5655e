// The working part of the camera: its state, its preview thread and its picture thread.
#pragma once

#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>
#include <camera/CameraHardwareInterface.h>
#include <pthread.h>
#include <utils/threads.h>

#include <array>
#include <atomic>
#include <memory>
#include <string>

#include "host/camera/CameraSettings.h"
#include "host/camera/PictureFormats.h"
#include "host/camera/Sources.h"

namespace kov::camera {

/// Everything that the camera and its two threads share. The threads hold it together with the camera: neither waits
/// for the other's end, so the camera may be dropped from inside a callback.
///
/// Locks: `mLock` guards the state, `mSourceLock` the source; mSourceLock is never taken under mLock. No lock is held
/// during a callback, and no operation waits for one: each may be called from inside a callback on either thread. The
/// message that a thread has already decided to deliver may therefore still arrive while, or just after, stopPreview,
/// setCallbacks, disableMsgType, cancelPicture or release returns; no further one does.
class Delivery : public std::enable_shared_from_this<Delivery> {
public:
    /// `speed`: how many times faster than real time the stream runs.
    Delivery(std::unique_ptr<FrameSource> source, std::string sourceName, double speed);

    /// Starts both threads. Called once, before anything else.
    void start();
    /// Ends everything: nothing is delivered any more, both threads end, every operation is refused. Any thread.
    void shutDown();

    void setCallbacks(android::notify_callback notify, android::data_callback data,
                      android::data_callback_timestamp dataTimestamp, void* user);
    void enable(int32_t messages) { mMessages.fetch_or(messages); }
    void disable(int32_t messages) { mMessages.fetch_and(~messages); }
    bool enabled(int32_t messages) const { return (mMessages.load() & messages) == messages; }

    android::CameraParameters parameters() const;
    android::status_t setParameters(const android::CameraParameters& parameters);

    android::sp<android::IMemoryHeap> previewHeap();
    android::sp<android::IMemoryHeap> rawHeap();

    android::status_t startPreview();
    void stopPreview();
    bool previewing() const;

    android::status_t startRecording();
    void stopRecording();
    bool recording() const;
    void releaseRecordingFrame(const android::sp<android::IMemory>& memory);

    android::status_t autoFocus();
    void cancelAutoFocus();

    android::status_t takePicture();
    void cancelPicture();

    std::string describe() const;

private:
    struct Callbacks {
        android::notify_callback notify = nullptr;
        android::data_callback data = nullptr;
        android::data_callback_timestamp dataTimestamp = nullptr;
        void* user = nullptr;
    };
    /// A heap cut into places of one frame each.
    struct Ring {
        static constexpr int kPlaces = 6;
        android::sp<android::MemoryHeapBase> heap;
        size_t frameBytes = 0;
        int next = 0;
        std::array<bool, kPlaces> lent{};  // recording frames that have not come back

        void allocate(size_t bytes, const char* name);
        android::sp<android::IMemory> place(int index) const;
        /// The next place that is not lent, or -1.
        int takeFree();
    };
    /// One frame on its way from the source to the callbacks.
    struct FrameJob {
        uint32_t session = 0;
        int64_t index = 0;
        CameraSettings settings;
        android::sp<android::IMemory> memory;
    };
    struct PictureJob {
        uint32_t number = 0;
        int64_t index = 0;
        int frameRate = 0;
        CameraSettings settings;
        android::sp<android::MemoryHeapBase> rawHeap;
    };

    struct Thread;

    void previewLoop();
    /// Waits until a frame is due. False when the camera was shut down.
    bool waitForFrame(FrameJob* job);
    bool fillFrame(const FrameJob& job, FrameWriter& writer);
    void deliverPreview(const FrameJob& job);
    void deliverRecording(const FrameJob& job);

    void pictureLoop();
    void makePicture(const PictureJob& job, FrameWriter& writer);
    /// Whether messages of this picture may still be sent.
    bool wanted(const PictureJob& job) const;
    /// The picture's messages are over; the camera is ready for the next one. False when it was cancelled before.
    bool finishPicture(const PictureJob& job);
    /// Makes and sends one message of a picture. The camera is ready for the next picture when the last one arrives.
    template <typename Make>
    void sendPicture(const PictureJob& job, int32_t message, bool last, Make make);
    android::sp<android::IMemory> makeRaw(const PictureJob& job, const cv::Mat& picture, FrameWriter& writer);
    android::sp<android::IMemory> makeJpeg(const PictureJob& job, const cv::Mat& picture, FrameWriter& writer);

    /// The source's view, or an empty picture after an error line. Takes mSourceLock.
    cv::Mat view(int64_t index, int frameRate, FrameSize size) EXCLUDES(mLock, mSourceLock);
    void notifyIfEnabled(int32_t message, int32_t ext1, int32_t ext2);
    Callbacks callbacks() const;
    /// Ends the preview when the source has broken, and tells the application.
    void reportBrokenSource();
    void endPreview() REQUIRES(mLock);
    void ensurePreviewRing() REQUIRES(mLock);
    void ensureRawHeap() REQUIRES(mLock);

    const std::string mSourceName;
    const double mSpeed;

    android::Mutex mSourceLock;
    const std::unique_ptr<FrameSource> mSource PT_GUARDED_BY(mSourceLock);

    std::atomic<int32_t> mMessages{0};

    mutable android::Mutex mLock;
    android::Condition mPreviewWork;  // the preview thread waits on it
    android::Condition mPictureWork;  // the picture thread waits on it
    std::array<pthread_t, 2> mThreads GUARDED_BY(mLock) = {};
    bool mShutDown GUARDED_BY(mLock) = false;
    Callbacks mCallbacks GUARDED_BY(mLock);
    android::CameraParameters mParameters GUARDED_BY(mLock);
    CameraSettings mSettings GUARDED_BY(mLock);

    bool mPreviewing GUARDED_BY(mLock) = false;
    uint32_t mSession GUARDED_BY(mLock) = 0;    // counts starts of the preview
    int64_t mNextFrame GUARDED_BY(mLock) = 0;   // number of the next frame since the camera was opened
    int64_t mShownFrame GUARDED_BY(mLock) = 0;  // number of the frame that was delivered last: what a picture shows
    nsecs_t mDue GUARDED_BY(mLock) = 0;         // when it is due
    int64_t mFramesLate GUARDED_BY(mLock) = 0;
    Ring mPreviewRing GUARDED_BY(mLock);

    bool mRecording GUARDED_BY(mLock) = false;
    Ring mRecordingRing GUARDED_BY(mLock);
    int64_t mRecordingDropped GUARDED_BY(mLock) = 0;

    android::sp<android::MemoryHeapBase> mRawHeap GUARDED_BY(mLock);
    bool mPictureAsked GUARDED_BY(mLock) = false;    // takePicture was called and the picture thread has not begun
    bool mPictureRunning GUARDED_BY(mLock) = false;  // messages of the picture are still to come
    uint32_t mPictureNumber GUARDED_BY(mLock) = 0;   // a cancelled picture's number is never current again
    int64_t mPicturesTaken GUARDED_BY(mLock) = 0;
    bool mFocusing GUARDED_BY(mLock) = false;
    nsecs_t mFocusDue GUARDED_BY(mLock) = 0;
};

}  // namespace kov::camera
