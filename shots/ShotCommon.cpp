// The base of every shot: forwards each operation to the vendor layer.

#include "shots/ShotCommon.h"

#include <unistd.h>

#include <cstring>
#include <utility>

#include "imaging/ArcJpegEncoder.h"

namespace android {

namespace {

constexpr TaggedLog kLog("ShotCommon");

struct FormatName {
    const char* name;
    int32_t code;
};

constexpr FormatName kFormatNames[] = {
    {"yuv420p", KOV_FORMAT_YUV420P},   {"yuv422p", KOV_FORMAT_YUV422P}, {"yuv420sp", KOV_FORMAT_YUV420SP},
    {"yuv422sp", KOV_FORMAT_YUV422SP}, {"yuv420i", KOV_FORMAT_YUV420I}, {"yuv422i-yuyv", KOV_FORMAT_YUV422I_YUYV},
    {"rgb565", KOV_FORMAT_RGB565},
};

}  // namespace

int32_t colorFormatFromName(const char* name) {
    for (const FormatName& format : kFormatNames) {
        if (std::strcmp(name, format.name) == 0)
            return format.code;
    }
    return KOV_FORMAT_UNKNOWN;
}

ShotCommon::ShotCommon(sp<CameraHardwareInterface> hardware, ShotGate& gate)
    : mHardware(std::move(hardware)), mGate(gate) {
    kLog.info("ShotCommon created: pid=%d", getpid());
    init();
}

ShotCommon::~ShotCommon() {
    kLog.info("ShotCommon destroyed: pid=%d", getpid());
    mHardware.clear();
    mGate.close();
    mGate.giveUp();
}

void ShotCommon::init() {
    getInformationFromHardware();
}

void ShotCommon::getInformationFromHardware() {
    if (!mHardware.get()) {
        logHardwareMissing();
        return;
    }
    const CameraParameters params = mHardware->getParameters();

    takePreviewSize(params);
    kLog.info("Preview width(%d), height(%d)", mPreviewWidth.load(), mPreviewHeight.load());
    if (const char* format = params.getPreviewFormat()) {
        kLog.info("Preview color format %s", format);
        mPreviewFormat = colorFormatFromName(format);
        mPreviewLayout = layoutOfFormat(format);
    }
    const auto [width, height] = pictureSizeOf(params);
    mPictureWidth = width;
    mPictureHeight = height;
    kLog.info("Picture width(%d), height(%d)", mPictureWidth.load(), mPictureHeight.load());
    if (const char* format = params.getPictureFormat()) {
        kLog.info("Picture color format %s", format);
        mPictureFormat = colorFormatFromName(format);
    }
}

void ShotCommon::logHardwareMissing() {
    kLog.error("mHardware is NULL, returning.");
}

void ShotCommon::setCallbacks(notify_callback, data_callback, data_callback_timestamp, void*) {
    kLog.error("setCallbacks must be implemented in each shot");
}

void ShotCommon::takePreviewSize(const CameraParameters& params) {
    const auto [width, height] = previewSizeOf(params);
    mPreviewWidth = width;
    mPreviewHeight = height;
}

std::optional<int32_t> ShotCommon::readArcJpegQuality() const {
    const sp<CameraHardwareInterface> hardware = mHardware;
    if (!hardware.get())
        return kArcJpegQualityWithoutHardware;
    CameraParameters params;
    if (gone(callOut([&] { params = hardware->getParameters(); })))
        return std::nullopt;
    return arcJpegQuality(params.getInt(CameraParameters::KEY_JPEG_QUALITY));
}

void ShotCommon::tellFault(RegionFault fault, size_t size, const TaggedLog& log) {
    const uint32_t bit = 1U << static_cast<unsigned>(fault);
    if (mFaultsTold.fetch_or(bit) & bit)
        return;
    switch (fault) {
        case RegionFault::None:
            break;
        case RegionFault::NoMemory:
            log.error("a preview frame has no memory; such frames are passed on as they are");
            break;
        case RegionFault::BeyondHeap:
            log.error("a preview frame reaches beyond its heap; such frames are passed on as they are");
            break;
        case RegionFault::TooSmall:
            log.error("a preview frame of %zu bytes is smaller than %d x %d; such frames are passed on as they are",
                      size, mPreviewWidth.load(), mPreviewHeight.load());
            break;
    }
}

status_t ShotCommon::startPreview() {
    const sp<CameraHardwareInterface> hardware = mHardware;
    if (!hardware.get()) {
        logHardwareMissing();
        return INVALID_OPERATION;
    }
    return startPreviewAfter(hardware, [this](const CameraParameters& params) { takePreviewSize(params); });
}

sp<IMemoryHeap> ShotCommon::getPreviewHeap() {
    return forward(sp<IMemoryHeap>(), [](auto& hardware) { return hardware.getPreviewHeap(); });
}

sp<IMemoryHeap> ShotCommon::getRawHeap() {
    return forward(sp<IMemoryHeap>(), [](auto& hardware) { return hardware.getRawHeap(); });
}

void ShotCommon::enableMsgType(int32_t msgType) {
    forward([=](auto& hardware) { hardware.enableMsgType(msgType); });
}

void ShotCommon::disableMsgType(int32_t msgType) {
    forward([=](auto& hardware) { hardware.disableMsgType(msgType); });
}

bool ShotCommon::msgTypeEnabled(int32_t msgType) {
    return forward(false, [=](auto& hardware) { return hardware.msgTypeEnabled(msgType); });
}

void ShotCommon::stopPreview() {
    forward([](auto& hardware) { hardware.stopPreview(); });
}

bool ShotCommon::previewEnabled() {
    return forward(false, [](auto& hardware) { return hardware.previewEnabled(); });
}

status_t ShotCommon::startRecording() {
    return forward<status_t>(INVALID_OPERATION, [](auto& hardware) { return hardware.startRecording(); });
}

void ShotCommon::stopRecording() {
    forward([](auto& hardware) { hardware.stopRecording(); });
}

bool ShotCommon::recordingEnabled() {
    return forward(false, [](auto& hardware) { return hardware.recordingEnabled(); });
}

void ShotCommon::releaseRecordingFrame(const sp<IMemory>& mem) {
    forward([&](auto& hardware) { hardware.releaseRecordingFrame(mem); });
}

status_t ShotCommon::autoFocus() {
    return forward<status_t>(INVALID_OPERATION, [](auto& hardware) { return hardware.autoFocus(); });
}

status_t ShotCommon::cancelAutoFocus() {
    return forward<status_t>(INVALID_OPERATION, [](auto& hardware) { return hardware.cancelAutoFocus(); });
}

status_t ShotCommon::takePicture() {
    return forward<status_t>(INVALID_OPERATION, [](auto& hardware) { return hardware.takePicture(); });
}

status_t ShotCommon::cancelPicture() {
    return forward<status_t>(INVALID_OPERATION, [](auto& hardware) { return hardware.cancelPicture(); });
}

status_t ShotCommon::setParameters(const CameraParameters& params) {
    return forward<status_t>(INVALID_OPERATION, [&](auto& hardware) { return hardware.setParameters(params); });
}

CameraParameters ShotCommon::getParameters() const {
    const sp<CameraHardwareInterface> hardware = mHardware;
    if (!hardware.get())
        return CameraParameters();
    const ShotGate::Outside outside(mGate);
    return hardware->getParameters();
}

status_t ShotCommon::sendCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    return forward<status_t>(INVALID_OPERATION, [=](auto& hardware) { return hardware.sendCommand(cmd, arg1, arg2); });
}

void ShotCommon::release() {
    forward([](auto& hardware) { hardware.release(); });
}

status_t ShotCommon::dump(int fd, const Vector<String16>& args) const {
    return forward<status_t>(INVALID_OPERATION, [&](auto& hardware) { return hardware.dump(fd, args); });
}

void ShotCommon::setCameraHardware(sp<CameraHardwareInterface> hardware) {
    mHardware = std::move(hardware);
}

}  // namespace android
