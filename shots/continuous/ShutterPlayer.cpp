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

ShutterPlayer::ShutterPlayer() {
    const bool special = hasSpecialSalesCode();
    mShutterPlayer = newMediaPlayer(kSoundFile);
    if (special)
        kLog.error("ShotContinuous OPS OPS OPS OPS OPS OPS OPS OPS OPS OPS");
    mVolume = special ? kSpecialVolume : VolumeCustomizer::getSituationVolume(kSituation, kAnyStream);
    kLog.info("ShotContinuous - mVolume : %f", static_cast<double>(mVolume));
    if (mShutterPlayer.get())
        mShutterPlayer->setVolume(mVolume, mVolume);
}

void ShutterPlayer::turnOn(bool special) {
    const AutoMutex held(mLock);
    if (!mShutterPlayer.get())
        mShutterPlayer = newMediaPlayer(kSoundFile);
    mVolume = VolumeCustomizer::getSituationVolume(kSituation, special ? kEnforcedStream : kAnyStream);
    if (mShutterPlayer.get())
        mShutterPlayer->setVolume(mVolume, mVolume);
}

void ShutterPlayer::turnOff() {
    const AutoMutex held(mLock);
    if (!mShutterPlayer.get())
        return;
    mShutterPlayer->disconnect();
    mShutterPlayer.clear();
}

void ShutterPlayer::play() {
    const AutoMutex held(mLock);
    if (!mShutterPlayer.get())
        return;
    mShutterPlayer->seekTo(0);
    mShutterPlayer->start();
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
