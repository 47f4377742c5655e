// The click that is heard for each frame of a burst.

#include "shots/continuous/ShutterPlayer.h"

#include <cutils/properties.h>

#include <cstring>

#include "imaging/TaggedLog.h"

namespace android {

namespace {

constexpr TaggedLog kLog("ShotContinuous");
constexpr const char* kSoundFile = "/system/media/audio/ui/camera_click_short.ogg";
constexpr const char* kSalesCodeProperty = "ro.csc.sales_code";

// Countries in which the click must be heard.
constexpr const char* kSpecialCodes[] = {"OPS", "VNZ", "VAU", "XSA"};
constexpr float kSpecialVolume = 15.0F;

constexpr int kSystemStream = 1;
constexpr int kEnforcedStream = 7;
constexpr int kSituation = 2;
constexpr int kAnyStream = -1;

}  // namespace

bool ShutterPlayer::hasSpecialSalesCode() {
    char code[PROPERTY_VALUE_MAX] = {};
    property_get(kSalesCodeProperty, code, "none");
    for (const char* special : kSpecialCodes) {
        if (std::strcmp(code, special) == 0)
            return true;
    }
    return false;
}

void ShutterPlayer::begin() {
    const AutoMutex commanding(mCommandLock);
    const bool special = hasSpecialSalesCode();
    const sp<MediaPlayer> made = newMediaPlayer(kSoundFile);
    if (special)
        kLog.error("ShotContinuous OPS OPS OPS OPS OPS OPS OPS OPS OPS OPS");
    mVolume = special ? kSpecialVolume : VolumeCustomizer::getSituationVolume(kSituation, kAnyStream);
    kLog.info("ShotContinuous - mVolume : %f", static_cast<double>(mVolume));
    setPlayer(made);
}

void ShutterPlayer::turnOn(bool special) {
    const AutoMutex commanding(mCommandLock);
    const bool isOn = player().get() != nullptr;
    const sp<MediaPlayer> made = isOn ? nullptr : newMediaPlayer(kSoundFile);
    mVolume = VolumeCustomizer::getSituationVolume(kSituation, special ? kEnforcedStream : kAnyStream);
    if (!isOn)
        setPlayer(made);
}

/// Turns the sound on with a player that was made for it, at the present volume.
void ShutterPlayer::setPlayer(const sp<MediaPlayer>& made) {
    if (made.get())
        made->setVolume(mVolume, mVolume);
    const AutoMutex held(mLock);
    mShutterPlayer = made;
}

void ShutterPlayer::turnOff() {
    const AutoMutex commanding(mCommandLock);
    const sp<MediaPlayer> old = player();
    if (!old.get())
        return;
    old->disconnect();
    const AutoMutex held(mLock);
    mShutterPlayer.clear();
}

void ShutterPlayer::play() {
    const sp<MediaPlayer> present = player();
    if (!present.get())
        return;
    present->seekTo(0);
    present->start();
}

sp<MediaPlayer> ShutterPlayer::player() {
    const AutoMutex held(mLock);
    return mShutterPlayer;
}

sp<MediaPlayer> ShutterPlayer::newMediaPlayer(const char* path) {
    kLog.error("call newMediaPlayer");
    sp<MediaPlayer> player = new MediaPlayer;
    const bool special = hasSpecialSalesCode();
    if (player->setDataSource(path, nullptr) != NO_ERROR) {
        kLog.error("Failed to load CameraService sounds.");
        return nullptr;
    }
    player->setAudioStreamType(special ? kEnforcedStream : kSystemStream);
    player->prepare();
    return player;
}

}  // namespace android
