// libmedia.so for tests: records its calls.

#include "tests/continuous/FakeMediaPlayer.h"

#include <media/mediaplayer.h>

#include "tests/support/Answers.h"
#include "tests/support/Recorder.h"

using kov::test::gFakeMedia;
using kov::test::record;
using kov::test::text;

namespace android {

namespace {

/// Records a call of the player of this number; another than the newest is told apart.
status_t call(const void* player, const std::string& line, const char* site = __builtin_FUNCTION()) {
    const bool isNewest = reinterpret_cast<uintptr_t>(player) == gFakeMedia.playersMade;
    record((isNewest ? "player." : "another player.") + line);
    return kov::test::ask(site) ? -1 : NO_ERROR;
}

}  // namespace

MediaPlayer::MediaPlayer() : mVoice(reinterpret_cast<Voice*>(++gFakeMedia.playersMade)) {
    ++gFakeMedia.playersAlive;
}

MediaPlayer::~MediaPlayer() {
    --gFakeMedia.playersAlive;
}

status_t MediaPlayer::setDataSource(const char* url, const KeyedVector<String8, String8>* headers) {
    const status_t result = call(mVoice, std::string("setDataSource ") + url + (headers ? " with headers" : ""));
    if (gFakeMedia.whileLoading)
        gFakeMedia.whileLoading();
    return result ? result : gFakeMedia.dataSourceResult.load();
}

status_t MediaPlayer::setAudioStreamType(int type) {
    return call(mVoice, text("setAudioStreamType %d", type));
}

status_t MediaPlayer::prepare() {
    (void)call(mVoice, "prepare");
    return -1;  // not looked at
}

status_t MediaPlayer::setVolume(float left, float right) {
    return call(mVoice, text("setVolume %g %g", static_cast<double>(left), static_cast<double>(right)));
}

status_t MediaPlayer::seekTo(int milliseconds) {
    return call(mVoice, text("seekTo %d", milliseconds));
}

status_t MediaPlayer::start() {
    return call(mVoice, "start");
}

void MediaPlayer::disconnect() {
    record("player.disconnect");
}

float VolumeCustomizer::getSituationVolume(int situation, int stream) {
    record(text("getSituationVolume %d %d", situation, stream));
    return kov::test::ask() ? -1e30F : gFakeMedia.situationVolume.load();
}

}  // namespace android
