// The host's media player, heard through SDL's disk driver.

#include <gtest/gtest.h>
#include <media/mediaplayer.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

using namespace android;

namespace {

constexpr const char* kClick = "/system/media/audio/ui/camera_click_short.ogg";

/// Separate sounds in a recording of 16-bit stereo: loud places with at least 100 ms of silence before them.
int countSounds(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const auto* samples = reinterpret_cast<const int16_t*>(bytes.data());
    int sounds = 0;
    size_t quiet = 1000000;
    for (size_t i = 0; i < bytes.size() / 2; ++i) {
        if (std::abs(samples[i]) < 2000) {
            ++quiet;
            continue;
        }
        if (quiet > 44100 * 2 / 10)
            ++sounds;
        quiet = 0;
    }
    return sounds;
}

/// Plays into a file.
class MediaPlayerTest : public ::testing::Test {
protected:
    MediaPlayerTest() {
        std::string name = (std::filesystem::temp_directory_path() / "kov-clicks-XXXXXX").string();
        folder = mkdtemp(name.data());
        recording = folder + "/clicks.raw";
        setenv("SDL_AUDIODRIVER", "disk", 1);
        setenv("SDL_DISKAUDIOFILE", recording.c_str(), 1);
    }
    ~MediaPlayerTest() override { std::filesystem::remove_all(folder); }

    std::string folder;
    std::string recording;
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
    const struct {
        const char* options;
        size_t frames;
        int clicks;
    } cases[] = {{"--count 3", 3, 3}, {"--count 1 --mute", 1, 0}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.options);
        std::filesystem::remove(recording);
        const std::string line = KOV_KOVCAM " shoot continuous -i 'scene:crossing?delay=0' -o " + folder + "/out " +
                                 each.options + " >/dev/null 2>&1 </dev/null";
        EXPECT_EQ(std::system(line.c_str()), 0);
        size_t pictures = 0;
        for (const auto& file : std::filesystem::directory_iterator(folder + "/out"))
            pictures += file.path().extension() == ".jpg";
        EXPECT_EQ(pictures, each.frames);
        EXPECT_EQ(countSounds(recording), each.clicks);
        std::filesystem::remove_all(folder + "/out");
    }
}

}  // namespace
