// Ordinary still capture: the vendor layer takes the picture.
#pragma once

#include "shots/ShotCallbacks.h"

namespace android {

/// Forwards everything, and writes lines around `takePicture` and `sendCommand` and for every compressed picture.
class ShotSingle : public ShotCallbacks<ShotSingle> {
public:
    static constexpr char kTag[] = "ShotSingle";

    explicit ShotSingle(sp<CameraHardwareInterface> hardware);
    ~ShotSingle() override;

    status_t takePicture() override;
    status_t processCommand(int32_t cmd, int32_t arg1, int32_t arg2);

    void processDataCallback(int32_t msgType, const sp<IMemory>& data);
};

}  // namespace android
