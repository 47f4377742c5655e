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

MediaPlayer::MediaPlayer() : mVoice(nullptr) {
    ++fakeMedia().playersAlive;
}

MediaPlayer::~MediaPlayer() {
    --fakeMedia().playersAlive;
}

status_t MediaPlayer::setDataSource(const char* url, const KeyedVector<String8, String8>* headers) {
    record(std::string("player.setDataSource ") + url + (headers ? " with headers" : ""));
    if (fakeMedia().whileLoading)
        fakeMedia().whileLoading();
    return fakeMedia().dataSourceResult;
}

status_t MediaPlayer::setAudioStreamType(int type) {
    record(text("player.setAudioStreamType %d", type));
    return NO_ERROR;
}

status_t MediaPlayer::prepare() {
    record("player.prepare");
    return -1;  // not looked at
}

status_t MediaPlayer::setVolume(float left, float right) {
    record(text("player.setVolume %g %g", static_cast<double>(left), static_cast<double>(right)));
    return NO_ERROR;
}

status_t MediaPlayer::seekTo(int milliseconds) {
    record(text("player.seekTo %d", milliseconds));
    return NO_ERROR;
}

status_t MediaPlayer::start() {
    record("player.start");
    return NO_ERROR;
}

void MediaPlayer::disconnect() {
    record("player.disconnect");
}

float VolumeCustomizer::getSituationVolume(int situation, int stream) {
    record(text("getSituationVolume %d %d", situation, stream));
    return fakeMedia().situationVolume;
}

}  // namespace android
