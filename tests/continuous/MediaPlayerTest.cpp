// The host's media player, heard through SDL's disk driver.

#include <gtest/gtest.h>
#include <media/mediaplayer.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/camera/TemporaryFolder.h"

using namespace android;

namespace {

constexpr const char* kClick = "/system/media/audio/ui/camera_click_short.ogg";

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
class MediaPlayerTest : public ::testing::Test {
protected:
    MediaPlayerTest() {
        setenv("SDL_AUDIODRIVER", "disk", 1);
        setenv("SDL_DISKAUDIOFILE", recording.c_str(), 1);
    }
    const kov::test::TemporaryFolder folder;
    const std::string recording = folder / "clicks.raw";
};

TEST_F(MediaPlayerTest, PlaysAsOftenAsItIsStartedAndRefusesWhatItCannotPlay) {
    const sp<MediaPlayer> broken = new MediaPlayer;
    EXPECT_NE(broken->setDataSource("/no/such.ogg", nullptr), NO_ERROR);
    EXPECT_NE(broken->start(), NO_ERROR);

    const sp<MediaPlayer> player = new MediaPlayer;
    ASSERT_EQ(player->setDataSource(kClick, nullptr), NO_ERROR);
    player->setVolume(15, 15);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(player->seekTo(0), NO_ERROR);
        EXPECT_EQ(player->start(), NO_ERROR);
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
    }
    player->setVolume(0, 0);
    player->start();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    player->disconnect();
    EXPECT_NE(player->start(), NO_ERROR);
    EXPECT_EQ(countSounds(recording), 4);
}

TEST_F(MediaPlayerTest, ABurstSoundsAsOftenAsItTakesFrames) {
    for (const int frames : {3, 1}) {
        SCOPED_TRACE(frames);
        std::filesystem::remove(recording);
        const std::string options = frames == 3 ? "/out --count 3" : "/mute --count 1 --mute";
        const std::string line = KOV_KOVCAM " shoot continuous -i 'scene:crossing?delay=0' -o " + folder.path() +
                                 options + " >/dev/null 2>&1 </dev/null";
        EXPECT_EQ(std::system(line.c_str()), 0);
        int pictures = 0;
        for (const auto& file : std::filesystem::directory_iterator(folder / (frames == 3 ? "out" : "mute")))
            pictures += file.path().extension() == ".jpg";
        EXPECT_EQ(pictures, frames);
        EXPECT_EQ(countSounds(recording), frames == 3 ? 3 : 0);
    }
}

}  // namespace
