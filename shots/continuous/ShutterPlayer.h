// The click that is heard for each frame of a burst.
#pragma once

#include <kov/annotations.h>
#include <media/mediaplayer.h>
#include <utils/threads.h>

namespace android {

/// Plays the system's shutter sound. Any thread; turning the sound off waits for a `play` in progress, which only
/// starts the sound.
class ShutterPlayer {
public:
    /// Loads the sound and sets its volume.
    ShutterPlayer();
    ~ShutterPlayer() { turnOff(); }
    ShutterPlayer(const ShutterPlayer&) = delete;
    ShutterPlayer& operator=(const ShutterPlayer&) = delete;

    /// Whether the device is sold where the click must be heard.
    static bool hasSpecialSalesCode();

    /// Makes a player when there is none; each time takes the volume that the situation has now. `special`: the
    /// device's sales code is.
    void turnOn(bool special);
    void turnOff();
    /// Starts the click from its beginning, when the sound is on.
    void play();

    /// A player that is ready for the file, or empty when it cannot be played.
    static sp<MediaPlayer> newMediaPlayer(const char* path);

private:
    Mutex mLock;
    sp<MediaPlayer> mShutterPlayer GUARDED_BY(mLock);  // empty while the sound is off
    float mVolume GUARDED_BY(mLock);
};

}  // namespace android
