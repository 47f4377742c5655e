// The host's media player, heard through SDL's disk driver.

#include <media/mediaplayer.h>

#include <filesystem>
#include <fstream>

#include "tests/support/KovcamSession.h"

using namespace android;

namespace {

/// Separate sounds in a recording of 16-bit stereo: loud places with at least 100 ms of silence before them.
int countSounds(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    int sounds = 0;
    int quiet = 1000000;
    for (int16_t sample = 0; file.read(reinterpret_cast<char*>(&sample), sizeof sample);) {
        const bool loud = std::abs(sample) >= 2000;
        sounds += loud && quiet > 44100 * 2 / 10;
        quiet = loud ? 0 : quiet + 1;
    }
    return sounds;
}

/// Plays into a file.
class MediaPlayerTest : public kov::test::KovcamSession {
protected:
    MediaPlayerTest() {
        setenv("SDL_AUDIODRIVER", "disk", 1);
        setenv("SDL_DISKAUDIOFILE", recording.c_str(), 1);
    }
    const std::string recording = folder / "clicks.raw";
};

TEST_F(MediaPlayerTest, RefusesWhatItCannotPlay) {
    const sp<MediaPlayer> player = new MediaPlayer;
    EXPECT_NE(player->setDataSource("/no/such.ogg", nullptr), NO_ERROR);
    EXPECT_NE(player->start(), NO_ERROR);
    ASSERT_EQ(player->setDataSource("/system/media/audio/ui/camera_click_short.ogg", nullptr), NO_ERROR);
    player->disconnect();
    EXPECT_NE(player->start(), NO_ERROR);
}

TEST_F(MediaPlayerTest, ABurstSoundsAsOftenAsItTakesFrames) {
    for (const std::string options : {"", " --mute"}) {
        std::filesystem::remove(recording);
        shoot("continuous -i 'scene:crossing?delay=0' --count 3" + options, "KOV_CAMERA_SPEED=1 ");
        EXPECT_EQ(countSounds(recording), options.empty() ? 3 : 0);
    }
    std::vector<std::string> pictures;
    cv::glob(folder / "*.jpg", pictures);
    EXPECT_EQ(pictures.size(), 6U);
}

}  // namespace
