// The click that is heard for each frame of a burst.
#pragma once

#include <kov/annotations.h>
#include <media/mediaplayer.h>
#include <utils/threads.h>

namespace android {

/// Plays the system's shutter sound. Any thread. Turning it on and off go one after the other; `play` waits for
/// neither, and may start a sound that is being turned off, which is not heard then.
class ShutterPlayer {
public:
    ShutterPlayer() = default;
    ~ShutterPlayer() { turnOff(); }
    ShutterPlayer(const ShutterPlayer&) = delete;
    ShutterPlayer& operator=(const ShutterPlayer&) = delete;

    /// Loads the sound for the first time and sets its volume.
    void begin();
    /// Makes a player when there is none, and takes the volume that the situation has now. `special`: the device's
    /// sales code is.
    void turnOn(bool special);
    void turnOff();
    /// Starts the click from its beginning, when the sound is on.
    void play();

    /// Whether the device is sold where the click must be heard.
    static bool hasSpecialSalesCode();

private:
    static sp<MediaPlayer> newMediaPlayer(const char* path);
    sp<MediaPlayer> player();
    void setPlayer(const sp<MediaPlayer>& made) REQUIRES(mCommandLock);

    Mutex mCommandLock;                                // held while the sound is turned on or off; before mLock
    float mVolume GUARDED_BY(mCommandLock) = 0;        // of the latest command; kept, a player has it already
    Mutex mLock;                                       // a leaf
    sp<MediaPlayer> mShutterPlayer GUARDED_BY(mLock);  // empty while the sound is off
};

}  // namespace android
