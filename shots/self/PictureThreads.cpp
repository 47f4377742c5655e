// What the picture threads of one self shot share, with each other and with the shot, and what outlives it.

#include "shots/self/PictureThreads.h"

#include <utility>

namespace android {

namespace {

std::string textOf(const char* format) {
    return format ? format : "";
}

void setPictureFormat(CameraHardwareInterface& hardware, CameraParameters params, const std::string& format) {
    if (format.empty())
        params.remove(CameraParameters::KEY_PICTURE_FORMAT);
    else
        params.setPictureFormat(format.c_str());
    hardware.setParameters(params);
}

}  // namespace

PictureThreads::Turn::Turn(PictureThreads& threads) : mThreads(threads) {
    const AutoMutex held(mThreads.mLock);
    while (mThreads.mTurnTaken)
        mThreads.mTurnOver.wait(mThreads.mLock);
    mThreads.mTurnTaken = true;
}

PictureThreads::Turn::~Turn() {
    const AutoMutex held(mThreads.mLock);
    mThreads.mTurnTaken = false;
    mThreads.mTurnOver.signal();
}

void PictureThreads::changeFormat(const sp<CameraHardwareInterface>& hardware, CameraParameters params,
                                  std::string* original) {
    *original = textOf(params.getPictureFormat());
    const Change change = {hardware, *original, textOf(params.getPreviewFormat())};
    {
        const AutoMutex held(mLock);
        if (mShotGone)
            return;
        if (!mChange.hardware.get())  // else an earlier picture has failed, and what it found is still to be given back
            mChange = change;
    }
    setPictureFormat(*hardware.get(), std::move(params), change.borrowed);
    bool late;
    {
        const AutoMutex held(mLock);
        late = mShotGone;
    }
    if (late)  // whoever gave it back may have done so before it was changed
        change.undo();
}

void PictureThreads::restoreFormat(const std::string& original) {
    sp<CameraHardwareInterface> hardware;
    {
        const AutoMutex held(mLock);
        hardware = mChange.hardware;
    }
    if (hardware.get())
        setPictureFormat(*hardware.get(), hardware->getParameters(), original);
    const AutoMutex held(mLock);  // until now a switch has to see to it
    if (mChange.original == original)
        mChange = {};
}

void PictureThreads::restoreFormatOnce() {
    Change change;
    {
        const AutoMutex held(mLock);
        mShotGone = true;
        change = mChange;
    }
    if (!change.hardware.get())
        return;
    // The thread and the shot's end may both be here. Neither waits for the other, and the next shot is made after
    // either: so each undoes what is not yet undone.
    change.undo();
    const AutoMutex held(mLock);
    mChange = {};
}

void PictureThreads::Change::undo() const {
    const CameraParameters params = hardware->getParameters();
    if (textOf(params.getPictureFormat()) == borrowed)
        setPictureFormat(*hardware.get(), params, original);
}

}  // namespace android
