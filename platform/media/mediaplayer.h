// Playing sounds.
#pragma once

#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

namespace android {

template <typename Key, typename Value>
class KeyedVector;

/// Plays one file. One thread at a time.
class MediaPlayer : public virtual RefBase {
public:
    MediaPlayer();
    ~MediaPlayer() override;

    /// The file to play; `headers` are for network sources, else null. 0 when it can be played.
    status_t setDataSource(const char* url, const KeyedVector<String8, String8>* headers);
    status_t setAudioStreamType(int type);
    status_t prepare();
    /// 0 is silent, 1 and above is full.
    status_t setVolume(float left, float right);
    status_t seekTo(int milliseconds);
    /// Plays from where it is; returns at once.
    status_t start();
    /// Gives the sound device up; the player is not used after that.
    void disconnect();

private:
    class Voice;
    Voice* mVoice;
};

/// How loud sounds are in a situation.
class VolumeCustomizer {
public:
    static float getSituationVolume(int situation, int stream);
};

}  // namespace android
