// libmedia.so for unit tests: records its calls.

#include "tests/continuous/FakeMediaPlayer.h"

#include <media/mediaplayer.h>

#include "tests/support/Recorder.h"

using kov::test::fakeMedia;
using kov::test::record;
using kov::test::text;

namespace kov::test {

FakeMedia& fakeMedia() {
    static FakeMedia fake;
    return fake;
}

}  // namespace kov::test

namespace android {

namespace {

/// Records a call of the player of this number; another than the newest is told apart.
void call(const void* player, const std::string& line) {
    const bool isNewest = reinterpret_cast<uintptr_t>(player) == fakeMedia().playersMade;
    record((isNewest ? "player." : "another player.") + line);
}

}  // namespace

MediaPlayer::MediaPlayer() : mVoice(reinterpret_cast<Voice*>(++fakeMedia().playersMade)) {
    ++fakeMedia().playersAlive;
}

MediaPlayer::~MediaPlayer() {
    --fakeMedia().playersAlive;
}

status_t MediaPlayer::setDataSource(const char* url, const KeyedVector<String8, String8>* headers) {
    call(mVoice, std::string("setDataSource ") + url + (headers ? " with headers" : ""));
    if (fakeMedia().whileLoading)
        fakeMedia().whileLoading();
    return fakeMedia().dataSourceResult;
}

status_t MediaPlayer::setAudioStreamType(int type) {
    call(mVoice, text("setAudioStreamType %d", type));
    return NO_ERROR;
}

status_t MediaPlayer::prepare() {
    call(mVoice, "prepare");
    return -1;  // not looked at
}

status_t MediaPlayer::setVolume(float left, float right) {
    call(mVoice, text("setVolume %g %g", static_cast<double>(left), static_cast<double>(right)));
    return NO_ERROR;
}

status_t MediaPlayer::seekTo(int milliseconds) {
    call(mVoice, text("seekTo %d", milliseconds));
    return NO_ERROR;
}

status_t MediaPlayer::start() {
    call(mVoice, "start");
    return NO_ERROR;
}

void MediaPlayer::disconnect() {
    call(mVoice, "disconnect");
}

float VolumeCustomizer::getSituationVolume(int situation, int stream) {
    record(text("getSituationVolume %d %d", situation, stream));
    return fakeMedia().situationVolume;
}

}  // namespace android
