// The adaptor: what the camera service talks to in place of the vendor's camera layer.

#include "adaptor/KovCameraHardwareInterface.h"

#include <optional>
#include <utility>

#include "imaging/TaggedLog.h"
#include "shots/ShotCallbacks.h"

namespace android {

namespace {
constexpr TaggedLog kLog("KovCameraHardwareInterface");
}

/// What guards the making and the destroying of adaptors. It is made when it is first asked for and never destroyed, so
/// that the library can be opened by static initialisers that run before its own, and the last reference dropped by
/// static objects that outlive its own.
struct KovCameraHardwareInterface::Instance {
    Mutex lock;
    Condition changed;
    wp<CameraHardwareInterface> singleton GUARDED_BY(lock);
    bool exists GUARDED_BY(lock) = false;  // from before the constructor until after the destructor

    static Instance& get() {
        static Instance* const instance = new Instance;
        return *instance;
    }
};

/// The current shot, entered for the length of a block; false when there is none.
class KovCameraHardwareInterface::CurrentShot {
public:
    explicit CurrentShot(const KovCameraHardwareInterface& adaptor) {
        const AutoMutex held(adaptor.mLock);
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
    Instance& instance = Instance::get();
    {
        const AutoMutex held(instance.lock);
        for (;;) {
            sp<CameraHardwareInterface> alive = instance.singleton.promote();
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
    instance.singleton = wp<CameraHardwareInterface>(made);
    instance.changed.broadcast();
    return made;
}

KovCameraHardwareInterface::KovCameraHardwareInterface()
    : mHardware(openCameraHardware()), mGate(ShotGate::take(this, ShotGate::kindOf<KovCameraHardwareInterface>())) {
    ShotCommon* shot = makeShotSingle(mHardware);
    setShot(shot, &shot->gate());
    mGate.publish();
}

KovCameraHardwareInterface::~KovCameraHardwareInterface() {
    (void)mGate.retire();  // nobody is in it: those who deliver hold a reference
    if (mCurShot && mCurGate->retire())
        delete mCurShot;
    Instance& instance = Instance::get();
    {
        const AutoMutex held(instance.lock);
        instance.singleton.clear();
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
        kLog.error("%s", lineWithoutShot);
    // A local reference: the adaptor may be given up within the operation.
    const sp<CameraHardwareInterface> hardware = mHardware;
    return hardware.get() ? operation(*hardware.get()) : missing;
}

/// As `forward`, for what has no result.
template <typename Operation>
void KovCameraHardwareInterface::tell(const char* lineWithoutShot, Operation operation) const {
    forward(lineWithoutShot, nullptr, [&](auto& target) {
        operation(target);
        return nullptr;
    });
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
    tell("enableMsgType : mCurShot is NULL, returning.", [=](auto& target) { target.enableMsgType(msgType); });
}

void KovCameraHardwareInterface::disableMsgType(int32_t msgType) {
    tell("disableMsgType : mCurShot is NULL, returning.", [=](auto& target) { target.disableMsgType(msgType); });
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
    tell("stopPreview : mCurShot is NULL, returning.", [](auto& target) { target.stopPreview(); });
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
    tell("stopRecording : mCurShot is NULL, returning.", [](auto& target) { target.stopRecording(); });
}

bool KovCameraHardwareInterface::recordingEnabled() {
    return forward("recordingEnabled : mCurShot is NULL, returning.", false,
                   [](auto& target) { return target.recordingEnabled(); });
}

void KovCameraHardwareInterface::releaseRecordingFrame(const sp<IMemory>& mem) {
    tell("releaseRecordingFrame : mCurShot is NULL, returning.",
         [&](auto& target) { target.releaseRecordingFrame(mem); });
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
    tell("release : mCurShot is NULL, returning.", [](auto& target) { target.release(); });
}

status_t KovCameraHardwareInterface::dump(int fd, const Vector<String16>& args) const {
    return forward<status_t>("dump : mCurShot is NULL, returning.", INVALID_OPERATION,
                             [&](auto& target) { return target.dump(fd, args); });
}

status_t KovCameraHardwareInterface::sendCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    kLog.warn("sendCommand : %d %d %d ", cmd, arg1, arg2);
    if (cmd < KOV_MODE_FIRST || cmd > KOV_MODE_LAST) {
        return forward<status_t>("sendCommand : mCurShot is NULL, returning.", INVALID_OPERATION,
                                 [=](auto& target) { return target.sendCommand(cmd, arg1, arg2); });
    }
    switchTo(cmd);
    return NO_ERROR;
}

// --- Switching and registering

void KovCameraHardwareInterface::switchTo(int32_t code) {
    carryOut({.switches = true, .maker = shotMakerOf(code)});
}

void KovCameraHardwareInterface::releaseCurrentShot() {
    carryOut({.switches = true});
}

void KovCameraHardwareInterface::setCallbacks(notify_callback notify, data_callback data,
                                              data_callback_timestamp dataTimestamp, void* user) {
    mCallbacks.store(notify, data, dataTimestamp, user);
    if (!CurrentShot(*this))
        kLog.error("setCallbacks : mCurShot is NULL, return");
    carryOut({.registers = true});
}

// One thread at a time switches or registers, so that there are never two shots and that what is registered last is
// what is current. Others must not wait for it: it may be in the vendor layer, which may be waiting for a callback,
// which may be where they come from. They leave their wish, and it goes on until no wish is left.
void KovCameraHardwareInterface::carryOut(const Wish& wish) {
    const sp<CameraHardwareInterface> self(this);  // the service may drop its reference within a callback meanwhile
    if (leaveToOther(wish))
        return;
    while (const std::optional<Wish> next = nextWish()) {
        if (next->switches)
            removeShot();
        registerReceiver();
        if (next->maker)
            installShot(next->maker);
    }
}

/// Adds the wish to what is wished. False when nobody is at it: then the caller is.
bool KovCameraHardwareInterface::leaveToOther(const Wish& wish) {
    const AutoMutex held(mLock);
    if (wish.switches)
        mWish = wish;
    mWish.registers = true;  // a switch registers as well
    return std::exchange(mCarryingOut, true);
}

/// Takes what is wished; nothing when no wish is left, and then nobody is at it any more.
std::optional<KovCameraHardwareInterface::Wish> KovCameraHardwareInterface::nextWish() {
    const AutoMutex held(mLock);
    mCarryingOut = mWish.registers;
    const Wish wish = std::exchange(mWish, {});
    return wish.registers ? std::optional(wish) : std::nullopt;
}

void KovCameraHardwareInterface::removeShot() {
    ShotInterface* shot = nullptr;
    ShotGate* gate = nullptr;
    if (const CurrentShot current{*this})
        current->setCallbacks(nullptr, nullptr, nullptr, nullptr);
    {
        const AutoMutex held(mLock);
        shot = std::exchange(mCurShot, nullptr);
        gate = std::exchange(mCurGate, nullptr);
    }
    if (shot)
        retireShot(shot, *gate);
}

void KovCameraHardwareInterface::installShot(ShotMaker make) {
    ShotCommon* const shot = make(mHardware);
    setShot(shot, &shot->gate());
    registerReceiver();
}

void KovCameraHardwareInterface::setShot(ShotInterface* shot, ShotGate* gate) {
    const AutoMutex held(mLock);
    mCurShot = shot;
    mCurGate = gate;
}

/// Gives the adaptor's trampolines to the current shot, which registers its own with the vendor layer, or to the vendor
/// layer when there is no shot.
void KovCameraHardwareInterface::registerReceiver() {
    if (const CurrentShot shot{*this})
        shot->setCallbacks(notifyCallback, dataCallback, dataCallbackTimestamp, this);
    else if (mHardware.get())
        mHardware->setCallbacks(notifyCallback, dataCallback, dataCallbackTimestamp, this);
}

// --- Relay

/// Calls `deliver` with the adaptor that `user` names, held for that long. Messages for one that is gone are dropped.
template <typename Deliver>
void KovCameraHardwareInterface::deliver(void* user, Deliver deliver) {
    if (!user) {
        kLog.error("KovCameraHardwareInterface is NULL, returning.");
        return;
    }
    auto* const adaptor = static_cast<KovCameraHardwareInterface*>(user);
    {
        // Inside, the adaptor's memory is there, though its last reference may be gone.
        const ShotGate::Entry inside(user, ShotGate::kindOf<KovCameraHardwareInterface>());
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
        kLog.error("mNotifyCb is NULL, returning.");
}

void KovCameraHardwareInterface::processDataCallback(int32_t msgType, const sp<IMemory>& data) {
    if (const auto service = mCallbacks.data())
        service.callback(msgType, data, service.cookie);
    else
        kLog.error("mDataCb is NULL, returning.");
}

void KovCameraHardwareInterface::processDataCallbackTimestamp(int64_t timestamp, int32_t msgType,
                                                              const sp<IMemory>& data) {
    if (const auto service = mCallbacks.dataTimestamp())
        service.callback(timestamp, msgType, data, service.cookie);
    else
        kLog.error("mDataCbTimestamp is NULL, returning.");
}

}  // namespace android

__attribute__((visibility("default"))) android::sp<android::CameraHardwareInterface> openKovCameraHardware() {
    return android::KovCameraHardwareInterface::createInstance();
}
