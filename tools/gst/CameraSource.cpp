// The element's working part: the camera, the two pads, and what is told on the bus.

#include "tools/gst/CameraSource.h"

#include <camera/Camera.h>

#include <utility>

#include "tools/session/Error.h"

namespace kov::gst {

using android::AutoMutex;
using cam::Error;

/// Hears the session. Holds the element: a message that was under way may come after the camera was closed.
class CameraSource::Ears : public cam::Listener {
public:
    explicit Ears(CameraSource& source)
        : mSource(source), mElement(static_cast<GstElement*>(gst_object_ref(source.mElement))) {}
    ~Ears() override { gst_object_unref(mElement); }
    Ears(const Ears&) = delete;
    Ears& operator=(const Ears&) = delete;

    void onFrame(const cam::Frame& frame) override {
        mSource.mVideo.frameCame(frame);
        mSource.mCamera.frameCame();
    }
    void onPicture(const cam::Picture& picture) override {
        {
            const AutoMutex held(mSource.mPicturesLock);
            mSource.mCamera.pictureCame();
            mSource.mPictures.pictureCame(picture);
        }
        mSource.post(pictureMessage(mElement, picture));
        mSource.endPictures();
    }
    void onNotify(const cam::Notification& notification) override {
        mSource.mCamera.notified(notification);
        mSource.post(notificationMessage(mElement, notification));
        if (notification.type == android::CAMERA_MSG_ERROR)
            mSource.fail(notification.reason.empty() ? "the camera broke" : notification.reason);
        mSource.endPictures();
    }
    void onLog(const cam::LogLine& line) override { mSource.post(logMessage(mElement, line)); }

private:
    CameraSource& mSource;
    GstElement* const mElement;
};

CameraSource::CameraSource(GstElement* element)
    : mElement(element),
      mCamera({[this](const std::string& reason) { warn(reason); }, [this] { endPictures(); },
               [this] { return mPictures.linked() && !mEnding; }}),
      mVideo(element, mCamera, padHooks([this] { return mPictures.linked(); })),
      mPictures(element, padHooks([this] { return mVideo.linked(); })) {}

SourcePad::Hooks CameraSource::padHooks(std::function<bool()> othersLinked) {
    return {[this] { finish(); }, std::move(othersLinked), [this](GstFlowReturn flow) { fail(flow); },
            [this](const std::string& reason) { fail(reason); }};
}

// --- State

GstStateChangeReturn CameraSource::changeState(GstStateChange change, Chain chain) {
    if (change == GST_STATE_CHANGE_NULL_TO_READY && !open())
        return GST_STATE_CHANGE_FAILURE;
    if (change == GST_STATE_CHANGE_READY_TO_PAUSED)
        prepare();
    if (change == GST_STATE_CHANGE_PLAYING_TO_PAUSED)
        play(false);
    if (change == GST_STATE_CHANGE_PAUSED_TO_READY)
        mCamera.rest();
    const GstStateChangeReturn result = chain(mElement, change);
    if (result == GST_STATE_CHANGE_FAILURE)
        return result;
    switch (change) {
        case GST_STATE_CHANGE_READY_TO_PAUSED:
        case GST_STATE_CHANGE_PLAYING_TO_PAUSED:
            return GST_STATE_CHANGE_NO_PREROLL;
        case GST_STATE_CHANGE_PAUSED_TO_PLAYING:
            return play(true) ? result : GST_STATE_CHANGE_FAILURE;
        case GST_STATE_CHANGE_READY_TO_NULL:
            close();
            return result;
        default:
            return result;
    }
}

bool CameraSource::open() {
    Settings settings;
    {
        const AutoMutex held(mLock);
        settings = mSettings;
        mNews = std::make_unique<Lane>();
    }
    try {
        mCamera.open(
            {settings.source, settings.mode, settings.effect, settings.parameters(), std::make_shared<Ears>(*this)});
        return true;
    } catch (const Error& error) {
        const std::string reason = error.what();
        later([this, reason] { GST_ELEMENT_ERROR(mElement, RESOURCE, OPEN_READ, ("%s", reason.c_str()), (nullptr)); });
        close();
        return false;
    }
}

void CameraSource::close() {
    mCamera.close();
    std::unique_ptr<Lane> news;
    {
        const AutoMutex held(mLock);
        news.swap(mNews);
    }
    if (news)
        news->drain();
}

void CameraSource::prepare() {
    mEnding = false;
    const AutoMutex held(mLock);
    mVideo.setLimit(mSettings.numBuffers);
    mPictures.setLimit(mSettings.numPictures);
    mCamera.setByItself({mSettings.autoCapture, nsecs_t{mSettings.captureDuration} * 1000000});
}

bool CameraSource::play(bool playing) {
    if (playing)
        mVideo.forget();
    mVideo.setPlaying(playing);
    mPictures.setPlaying(playing);
    try {
        mCamera.setPlaying(playing);
        return true;
    } catch (const Error& error) {
        fail(error.what());
        return false;
    }
}

// --- The end

bool CameraSource::sendEvent(GstEvent* event) {
    if (GST_EVENT_TYPE(event) != GST_EVENT_EOS)
        return false;
    gst_event_unref(event);
    finish();
    return true;
}

void CameraSource::finish() {
    mEnding = true;
    mVideo.end();
    mCamera.stopCapture();
    endPictures();
}

void CameraSource::endPictures() {
    const AutoMutex held(mPicturesLock);
    if (mEnding && !mCamera.capturing())
        mPictures.end();
}

void CameraSource::fail(GstFlowReturn flow) {
    GST_ELEMENT_FLOW_ERROR(mElement, flow);
    mVideo.end();
    mPictures.end();
}

void CameraSource::fail(const std::string& reason) {
    later([this, reason] { GST_ELEMENT_ERROR(mElement, RESOURCE, READ, ("%s", reason.c_str()), (nullptr)); });
    mVideo.end();
    mPictures.end();
}

void CameraSource::warn(const std::string& reason) {
    later([this, reason] { GST_ELEMENT_WARNING(mElement, RESOURCE, SETTINGS, ("%s", reason.c_str()), (nullptr)); });
}

// --- The bus

void CameraSource::later(std::function<void()> work) {
    const AutoMutex held(mLock);
    if (mNews)
        mNews->add(std::move(work));
}

void CameraSource::post(MessagePtr message) {
    later([this, shared = std::shared_ptr<GstMessage>(std::move(message))] {
        gst_element_post_message(mElement, gst_message_ref(shared.get()));
    });
}

// --- Properties and signals

void CameraSource::set(guint property, const GValue* value) {
    Settings before;
    {
        const AutoMutex held(mLock);
        before = mSettings;
        setProperty(mSettings, property, value);
    }
    try {
        apply(property);
    } catch (const Error& error) {
        {
            const AutoMutex held(mLock);
            mSettings = before;
        }
        warn(error.what());
    }
}

/// What an open camera is told of at once.
void CameraSource::apply(guint property) {
    Settings settings;
    {
        const AutoMutex held(mLock);
        settings = mSettings;
    }
    if (property == kMode)
        mCamera.selectMode(settings.mode);
    if (property == kEffect)
        mCamera.selectEffect(settings.effect);
    if (property == kJpegQuality)
        mCamera.setParameter("jpeg-quality", std::to_string(settings.jpegQuality));
    if (property == kPictureSize && !settings.pictureSize.empty())
        mCamera.setParameter("picture-size", settings.pictureSize);
}

void CameraSource::get(guint property, GValue* value) const {
    if (property == kStats)
        return g_value_take_boxed(value, stats());
    const AutoMutex held(mLock);
    getProperty(mSettings, property, value);
}

GstStructure* CameraSource::stats() const {
    return gst_structure_new("kovcamera-stats", "frames", G_TYPE_UINT64, guint64{mVideo.pushed()}, "frames-dropped",
                             G_TYPE_UINT64, guint64{mVideo.dropped()}, "pictures", G_TYPE_UINT64,
                             guint64{mPictures.pushed()}, "pictures-dropped", G_TYPE_UINT64,
                             guint64{mPictures.dropped()}, nullptr);
}

int CameraSource::command(int code, int arg1, int arg2) {
    try {
        return mCamera.command(code, arg1, arg2);
    } catch (const Error& error) {
        GST_ELEMENT_WARNING(mElement, RESOURCE, SETTINGS, ("%s", error.what()), (nullptr));
        return -1;
    }
}

}  // namespace kov::gst
