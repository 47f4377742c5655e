// Playing sounds through SDL2's mixer.

#include <SDL2/SDL.h>
#include <SDL2/SDL_mixer.h>
#include <dlfcn.h>
#include <media/mediaplayer.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace android {

namespace {

constexpr int kRate = 44100;
constexpr int kChunk = 1024;  // sample frames
constexpr int kMostPlayers = 64;
constexpr int kEnforcedStream = 7;
constexpr float kEnforcedVolume = 1.0F;
constexpr float kOrdinaryVolume = 0.6F;

/// The folder `root` beside this library, or beside its folder as a build has it.
std::string usualRoot() {
    Dl_info self{};
    if (dladdr(reinterpret_cast<void*>(&usualRoot), &self) == 0)
        return {};
    const auto folder = std::filesystem::path(self.dli_fname).parent_path();
    std::error_code ignored;
    return (std::filesystem::exists(folder / "root", ignored) ? folder : folder / "..") / "root";
}

std::string underRoot(const char* path) {
    static const std::string usual = usualRoot();
    const char* root = std::getenv("KOV_ROOT");
    return (root && *root ? root : usual) + path;
}

bool openDevice() {
    return Mix_OpenAudio(kRate, AUDIO_S16SYS, 2, kChunk) == 0;
}

/// The process's sound device, or SDL's dummy one where there is none. False when not even that can be had.
bool haveDevice() {
    static const bool open = [] {
        SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
        // Without sound hardware, trying would print what every library on the way thinks of that.
        if (!std::getenv("SDL_AUDIODRIVER") && !std::filesystem::exists("/dev/snd"))
            setenv("SDL_AUDIODRIVER", "dummy", 1);
        if (SDL_InitSubSystem(SDL_INIT_AUDIO) != 0 || !openDevice()) {
            SDL_QuitSubSystem(SDL_INIT_AUDIO);
            setenv("SDL_AUDIODRIVER", "dummy", 1);
            if (SDL_InitSubSystem(SDL_INIT_AUDIO) != 0 || !openDevice())
                return false;
        }
        Mix_AllocateChannels(kMostPlayers);
        return true;
    }();
    return open;
}

int nextChannel() {
    static std::atomic<int> next{0};
    return next++ % kMostPlayers;
}

}  // namespace

class MediaPlayer::Voice {
public:
    ~Voice() { silence(); }

    bool load(const std::string& path) {
        silence();
        if (haveDevice())
            mSound = Mix_LoadWAV(path.c_str());
        return mSound != nullptr;
    }
    void setVolume(float left, float right) {
        mLeft = std::clamp(left, 0.0F, 1.0F);
        mRight = std::clamp(right, 0.0F, 1.0F);
    }
    bool play() const {
        if (!mSound)
            return false;
        Mix_HaltChannel(mChannel);
        Mix_SetPanning(mChannel, static_cast<Uint8>(mLeft * 255), static_cast<Uint8>(mRight * 255));
        return Mix_PlayChannel(mChannel, mSound, 0) == mChannel;
    }
    void silence() {
        if (!mSound)
            return;
        Mix_HaltChannel(mChannel);
        Mix_FreeChunk(mSound);
        mSound = nullptr;
    }

private:
    const int mChannel = nextChannel();
    Mix_Chunk* mSound = nullptr;
    float mLeft = 1;
    float mRight = 1;
};

MediaPlayer::MediaPlayer() : mVoice(new Voice) {}

MediaPlayer::~MediaPlayer() {
    delete mVoice;
}

status_t MediaPlayer::setDataSource(const char* url, const KeyedVector<String8, String8>*) {
    return url && mVoice->load(underRoot(url)) ? NO_ERROR : BAD_VALUE;
}

status_t MediaPlayer::setAudioStreamType(int) {
    return NO_ERROR;  // a desktop has one stream
}

status_t MediaPlayer::prepare() {
    return NO_ERROR;  // loaded as a whole by setDataSource
}

status_t MediaPlayer::setVolume(float left, float right) {
    mVoice->setVolume(left, right);
    return NO_ERROR;
}

status_t MediaPlayer::seekTo(int milliseconds) {
    return milliseconds == 0 ? NO_ERROR : INVALID_OPERATION;  // `start` begins anew
}

status_t MediaPlayer::start() {
    return mVoice->play() ? NO_ERROR : INVALID_OPERATION;
}

void MediaPlayer::disconnect() {
    mVoice->silence();
}

float VolumeCustomizer::getSituationVolume(int, int stream) {
    return stream == kEnforcedStream ? kEnforcedVolume : kOrdinaryVolume;
}

}  // namespace android
