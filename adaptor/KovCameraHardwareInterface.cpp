// The adaptor: what the camera service talks to in place of the vendor's camera layer.

#include "adaptor/KovCameraHardwareInterface.h"

#include <android/log.h>

#include <optional>

#include "shots/Commands.h"
#include "shots/ShotCallbacks.h"
#include "shots/ShotSingle.h"
#include "shots/action/ShotAction.h"
#include "shots/addme/ShotAddMe.h"
#include "shots/cartoon/ShotCartoon.h"
#include "shots/continuous/ShotContinuous.h"
#include "shots/panorama/ShotPanorama.h"
#include "shots/self/ShotSelf.h"
#include "shots/smile/ShotSmile.h"

namespace android {

namespace {

constexpr const char* kTag = "KovCameraHardwareInterface";

/// Makes a shot of the mode, for the adaptor's table of switches.
template <typename Mode>
ShotCommon* make(const sp<CameraHardwareInterface>& hardware) {
    return makeShot<Mode>(hardware);
}

}  // namespace

// Storage that is never destroyed: the last reference may be dropped by a thread, or by a static object of the service,
// that outlives the library's static objects. The same holds for Instance.
wp<CameraHardwareInterface>& KovCameraHardwareInterface::singleton = *new wp<CameraHardwareInterface>;

/// What guards the making and the destroying of adaptors.
struct KovCameraHardwareInterface::Instance {
    Mutex lock;
    Condition changed;
    bool exists GUARDED_BY(lock) = false;  // from before the constructor until after the destructor

    static Instance& get() {
        static Instance* const instance = new Instance;
        return *instance;
    }
};

/// Gives up the weak reference when the library is unloaded.
struct KovCameraHardwareInterface::Unload {
    ~Unload() {
        const AutoMutex held(Instance::get().lock);
        singleton.clear();
    }
};

/// The current shot, entered for the length of a block; false when there is none.
class KovCameraHardwareInterface::CurrentShot {
public:
    explicit CurrentShot(const KovCameraHardwareInterface& adaptor) {
        const AutoMutex held(adaptor.mShotLock);
        if (!adaptor.mCurShot)
            return;
        mShot = adaptor.mCurShot;
        mEntry.emplace(*adaptor.mCurGate);  // open, as its shot is current
    }
    explicit operator bool() const { return mShot != nullptr; }
    ShotInterface& operator*() const { return *mShot; }
    ShotInterface* operator->() const { return mShot; }

private:
    ShotInterface* mShot = nullptr;
    std::optional<ShotGate::Entry> mEntry;
};

// --- Coming and going

sp<CameraHardwareInterface> KovCameraHardwareInterface::createInstance() {
    static const Unload atUnload;
    Instance& instance = Instance::get();
    {
        const AutoMutex held(instance.lock);
        for (;;) {
            sp<CameraHardwareInterface> alive = singleton.promote();
            if (alive.get())
                return alive;
            if (!instance.exists)
                break;
            instance.changed.wait(instance.lock);
        }
        instance.exists = true;
    }
    // The vendor layer is opened without the lock: that may take long, and may call anything.
    sp<CameraHardwareInterface> made = new KovCameraHardwareInterface;
    const AutoMutex held(instance.lock);
    singleton = wp<CameraHardwareInterface>(made);
    instance.changed.broadcast();
    return made;
}

KovCameraHardwareInterface::KovCameraHardwareInterface()
    : mHardware(openCameraHardware()), mGate(ShotGate::take(this, kind())) {
    ShotCommon* shot = makeShot<ShotSingle>(mHardware);
    setShot(shot, &shot->gate());
    mGate.publish();
}

KovCameraHardwareInterface::~KovCameraHardwareInterface() {
    mGate.retire();
    if (mCurShot) {
        mCurGate->retire();
        delete mCurShot;
        mCurShot = nullptr;
    }
    Instance& instance = Instance::get();
    {
        const AutoMutex held(instance.lock);
        singleton.clear();
    }
    mHardware.clear();
    mGate.giveUp();
    const AutoMutex held(instance.lock);
    instance.exists = false;
    instance.changed.broadcast();
}

// --- Operations: to the shot, else to the vendor layer, else nowhere

template <typename Result, typename Operation>
Result KovCameraHardwareInterface::forward(const char* lineWithoutShot, Result missing, Operation operation) const {
    if (const CurrentShot shot{*this})
        return operation(*shot);
    if (lineWithoutShot)
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s", lineWithoutShot);
    // A local reference: the adaptor may be given up within the operation.
    const sp<CameraHardwareInterface> hardware = mHardware;
    return hardware.get() ? operation(*hardware.get()) : missing;
}

sp<IMemoryHeap> KovCameraHardwareInterface::getPreviewHeap() {
    return forward("CameraParameters : mCurShot is NULL, returning.", sp<IMemoryHeap>(),
                   [](auto& target) { return target.getPreviewHeap(); });
}

sp<IMemoryHeap> KovCameraHardwareInterface::getRawHeap() {
    return forward("getRawHeap : mCurShot is NULL, returning.", sp<IMemoryHeap>(),
                   [](auto& target) { return target.getRawHeap(); });
}

void KovCameraHardwareInterface::enableMsgType(int32_t msgType) {
    forward("enableMsgType : mCurShot is NULL, returning.", 0, [=](auto& target) {
        target.enableMsgType(msgType);
        return 0;
    });
}

void KovCameraHardwareInterface::disableMsgType(int32_t msgType) {
    forward("disableMsgType : mCurShot is NULL, returning.", 0, [=](auto& target) {
        target.disableMsgType(msgType);
        return 0;
    });
}

bool KovCameraHardwareInterface::msgTypeEnabled(int32_t msgType) {
    return forward("msgTypeEnabled : mCurShot is NULL, returning.", false,
                   [=](auto& target) { return target.msgTypeEnabled(msgType); });
}

status_t KovCameraHardwareInterface::startPreview() {
    return forward<status_t>("startPreview : mCurShot is NULL, returning.", INVALID_OPERATION,
                             [](auto& target) { return target.startPreview(); });
}

void KovCameraHardwareInterface::stopPreview() {
    forward("stopPreview : mCurShot is NULL, returning.", 0, [](auto& target) {
        target.stopPreview();
        return 0;
    });
}

bool KovCameraHardwareInterface::previewEnabled() {
    return forward("previewEnabled : mCurShot is NULL, returning.", false,
                   [](auto& target) { return target.previewEnabled(); });
}

status_t KovCameraHardwareInterface::startRecording() {
    return forward<status_t>("startRecording : mCurShot is NULL, returning.", INVALID_OPERATION,
                             [](auto& target) { return target.startRecording(); });
}

void KovCameraHardwareInterface::stopRecording() {
    forward("stopRecording : mCurShot is NULL, returning.", 0, [](auto& target) {
        target.stopRecording();
        return 0;
    });
}

bool KovCameraHardwareInterface::recordingEnabled() {
    return forward("recordingEnabled : mCurShot is NULL, returning.", false,
                   [](auto& target) { return target.recordingEnabled(); });
}

void KovCameraHardwareInterface::releaseRecordingFrame(const sp<IMemory>& mem) {
    forward("releaseRecordingFrame : mCurShot is NULL, returning.", 0, [&](auto& target) {
        target.releaseRecordingFrame(mem);
        return 0;
    });
}

status_t KovCameraHardwareInterface::autoFocus() {
    return forward<status_t>("autoFocus : mCurShot is NULL, returning.", INVALID_OPERATION,
                             [](auto& target) { return target.autoFocus(); });
}

status_t KovCameraHardwareInterface::cancelAutoFocus() {
    return forward<status_t>("cancelAutoFocus : mCurShot is NULL, returning.", INVALID_OPERATION,
                             [](auto& target) { return target.cancelAutoFocus(); });
}

status_t KovCameraHardwareInterface::takePicture() {
    return forward<status_t>("takePicture : mCurShot is NULL, returning.", INVALID_OPERATION,
                             [](auto& target) { return target.takePicture(); });
}

status_t KovCameraHardwareInterface::cancelPicture() {
    return forward<status_t>("cancelPicture : mCurShot is NULL, returning.", INVALID_OPERATION,
                             [](auto& target) { return target.cancelPicture(); });
}

status_t KovCameraHardwareInterface::setParameters(const CameraParameters& params) {
    return forward<status_t>("setParameters : mCurShot is NULL, returning.", INVALID_OPERATION,
                             [&](auto& target) { return target.setParameters(params); });
}

CameraParameters KovCameraHardwareInterface::getParameters() const {
    return forward(nullptr, CameraParameters(), [](auto& target) { return target.getParameters(); });
}

void KovCameraHardwareInterface::release() {
    forward("release : mCurShot is NULL, returning.", 0, [](auto& target) {
        target.release();
        return 0;
    });
}

status_t KovCameraHardwareInterface::dump(int fd, const Vector<String16>& args) const {
    return forward<status_t>("dump : mCurShot is NULL, returning.", INVALID_OPERATION,
                             [&](auto& target) { return target.dump(fd, args); });
}

status_t KovCameraHardwareInterface::sendCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    __android_log_print(ANDROID_LOG_WARN, kTag, "sendCommand : %d %d %d ", cmd, arg1, arg2);
    if (cmd < KOV_MODE_FIRST || cmd > KOV_MODE_LAST) {
        return forward<status_t>("sendCommand : mCurShot is NULL, returning.", INVALID_OPERATION,
                                 [=](auto& target) { return target.sendCommand(cmd, arg1, arg2); });
    }
    switch (cmd) {
        case KOV_MODE_SINGLE:
            changeToSingleShot();
            break;
        case KOV_MODE_CONTINUOUS:
            changeToContinuousShot();
            break;
        case KOV_MODE_PANORAMA:
            changeToPanoramaShot();
            break;
        case KOV_MODE_SMILE:
            changeToSmileShot();
            break;
        case KOV_MODE_SELF:
            changeToSelfShot();
            break;
        case KOV_MODE_ADDME:
            changeToAddMeShot();
            break;
        case KOV_MODE_ACTION:
            changeToActionShot();
            break;
        case KOV_MODE_CARTOON:
            changeToCartoonShot();
            break;
        default:
            releaseCurrentShot();
    }
    return NO_ERROR;
}

// --- Switching

void KovCameraHardwareInterface::changeToSingleShot() {
    switchTo(make<ShotSingle>);
}
void KovCameraHardwareInterface::changeToContinuousShot() {
    switchTo(make<ShotContinuous>);
}
void KovCameraHardwareInterface::changeToPanoramaShot() {
    switchTo(make<ShotPanorama>);
}
void KovCameraHardwareInterface::changeToSmileShot() {
    switchTo(make<ShotSmile>);
}
void KovCameraHardwareInterface::changeToSelfShot() {
    switchTo(make<ShotSelf>);
}
void KovCameraHardwareInterface::changeToAddMeShot() {
    switchTo(make<ShotAddMe>);
}
void KovCameraHardwareInterface::changeToActionShot() {
    switchTo(make<ShotAction>);
}
void KovCameraHardwareInterface::changeToCartoonShot() {
    switchTo(make<ShotCartoon>);
}
void KovCameraHardwareInterface::releaseCurrentShot() {
    switchTo(nullptr);
}

// One thread switches at a time, so that there are never two shots. A second one must not wait for it: the first may be
// in the vendor layer, which may be waiting for a callback, which may be where the second one comes from.
void KovCameraHardwareInterface::switchTo(ShotMaker make) {
    const sp<CameraHardwareInterface> self(this);  // the service may drop its reference within a callback meanwhile
    {
        const AutoMutex held(mShotLock);
        if (mSwitching) {
            mSwitchWanted = true;
            mWantedMaker = make;
            return;
        }
        mSwitching = true;
    }
    do {
        removeShot();
        if (make)
            installShot(make);
    } while (nextSwitch(&make));
}

/// Takes the last wish that came in meanwhile; false when there is none, which ends the switch.
bool KovCameraHardwareInterface::nextSwitch(ShotMaker* make) {
    const AutoMutex held(mShotLock);
    mSwitching = mSwitchWanted;
    mSwitchWanted = false;
    *make = mWantedMaker;
    return mSwitching;
}

void KovCameraHardwareInterface::removeShot() {
    ShotInterface* shot = nullptr;
    ShotGate* gate = nullptr;
    if (const CurrentShot current{*this})
        current->setCallbacks(nullptr, nullptr, nullptr, nullptr);
    {
        const AutoMutex held(mShotLock);
        shot = mCurShot;
        gate = mCurGate;
    }
    const uint32_t epoch = setShot(nullptr, nullptr);
    if (shot)
        retireShot(shot, *gate);
    registerReceiver(epoch);
}

void KovCameraHardwareInterface::installShot(ShotMaker make) {
    ShotCommon* shot = make(mHardware);
    registerReceiver(setShot(shot, &shot->gate()));
}

/// Returns the new epoch.
uint32_t KovCameraHardwareInterface::setShot(ShotInterface* shot, ShotGate* gate) {
    const AutoMutex held(mShotLock);
    mCurShot = shot;
    mCurGate = gate;
    return ++mReceiverEpoch;
}

/// Gives the adaptor's trampolines to the current shot, which registers its own with the vendor layer, or to the vendor
/// layer when there is no shot. `epoch` is the one that the caller saw. A switch on another thread may change the
/// receiver at any point here and its registration may be overtaken by this one, so this goes on until what was
/// registered last is what is current.
void KovCameraHardwareInterface::registerReceiver(uint32_t epoch) {
    for (;;) {
        if (const CurrentShot shot{*this})
            shot->setCallbacks(notifyCallback, dataCallback, dataCallbackTimestamp, this);
        else if (mHardware.get())
            mHardware->setCallbacks(notifyCallback, dataCallback, dataCallbackTimestamp, this);
        const AutoMutex held(mShotLock);
        if (mReceiverEpoch == epoch)
            return;
        epoch = mReceiverEpoch;
    }
}

// --- Relay

void KovCameraHardwareInterface::setCallbacks(notify_callback notify, data_callback data,
                                              data_callback_timestamp dataTimestamp, void* user) {
    const sp<CameraHardwareInterface> self(this);  // as in switchTo
    // A thread that finds the lock taken leaves the registration to its holder, which makes the very same one, and so
    // never waits for the vendor layer.
    const bool locked = mLock.tryLock() == 0;
    mCallbacks.store(notify, data, dataTimestamp, user);
    if (!locked)
        return;
    uint32_t epoch = 0;
    bool haveShot = false;
    {
        const AutoMutex held(mShotLock);
        epoch = mReceiverEpoch;
        haveShot = mCurShot != nullptr;
    }
    if (!haveShot)
        __android_log_print(ANDROID_LOG_ERROR, kTag, "setCallbacks : mCurShot is NULL, return");
    registerReceiver(epoch);
    mLock.unlock();
}

ShotGate::Kind KovCameraHardwareInterface::kind() {
    static const char here = 0;
    return &here;
}

/// Calls `deliver` with the adaptor that `user` names, held for that long. Messages for one that is gone are dropped.
template <typename Deliver>
void KovCameraHardwareInterface::deliver(void* user, Deliver deliver) {
    if (!user) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "KovCameraHardwareInterface is NULL, returning.");
        return;
    }
    auto* const adaptor = static_cast<KovCameraHardwareInterface*>(user);
    {
        // Inside, the adaptor's memory is there, though its last reference may be gone.
        const ShotGate::Entry inside(user, kind());
        if (!inside || !adaptor->getWeakRefs()->attemptIncStrong(user))
            return;
    }
    deliver(*adaptor);
    adaptor->decStrong(user);
}

void KovCameraHardwareInterface::notifyCallback(int32_t msgType, int32_t ext1, int32_t ext2, void* user) {
    deliver(user, [=](auto& adaptor) { adaptor.processNotifyCallback(msgType, ext1, ext2); });
}

void KovCameraHardwareInterface::dataCallback(int32_t msgType, const sp<IMemory>& data, void* user) {
    deliver(user, [&](auto& adaptor) { adaptor.processDataCallback(msgType, data); });
}

void KovCameraHardwareInterface::dataCallbackTimestamp(int64_t timestamp, int32_t msgType, const sp<IMemory>& data,
                                                       void* user) {
    deliver(user, [&](auto& adaptor) { adaptor.processDataCallbackTimestamp(timestamp, msgType, data); });
}

void KovCameraHardwareInterface::processNotifyCallback(int32_t msgType, int32_t ext1, int32_t ext2) {
    if (const auto service = mCallbacks.notify())
        service.callback(msgType, ext1, ext2, service.cookie);
    else
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mNotifyCb is NULL, returning.");
}

void KovCameraHardwareInterface::processDataCallback(int32_t msgType, const sp<IMemory>& data) {
    if (const auto service = mCallbacks.data())
        service.callback(msgType, data, service.cookie);
    else
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mDataCb is NULL, returning.");
}

void KovCameraHardwareInterface::processDataCallbackTimestamp(int64_t timestamp, int32_t msgType,
                                                              const sp<IMemory>& data) {
    if (const auto service = mCallbacks.dataTimestamp())
        service.callback(timestamp, msgType, data, service.cookie);
    else
        __android_log_print(ANDROID_LOG_ERROR, kTag, "mDataCbTimestamp is NULL, returning.");
}

}  // namespace android

__attribute__((visibility("default"))) android::sp<android::CameraHardwareInterface> openKovCameraHardware() {
    return android::KovCameraHardwareInterface::createInstance();
}
