// What code that was compiled elsewhere relies on: virtual-table slots and colour-format codes.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "adaptor/KovCameraHardwareInterface.h"
#include "shots/ShotInterface.h"

using namespace android;

namespace {

/// The virtual-table slot that a pointer to a virtual member function names, in the C++ ABI of the machines that this is
/// built for: ARM's, 32 or 64 bits wide, tells virtual ones in the second word, since its code addresses may be odd. The destructor takes two slots, so the second operation of a class is in slot 2.
template <typename Member>
size_t slotOf(Member member) {
    uintptr_t words[2];
    static_assert(sizeof member == sizeof words);
    std::memcpy(words, &member, sizeof words);
#if defined(__arm__) || defined(__aarch64__)
    EXPECT_EQ(words[1] & 1, 1U) << "not virtual";
    return words[0] / sizeof(void*);
#else
    EXPECT_EQ(words[0] & 1, 1U) << "not virtual";
    return (words[0] - 1) / sizeof(void*);
#endif
}

template <typename Interface>
void expectPlatformSlots() {
    using I = Interface;
    const size_t slots[] = {slotOf(&I::getPreviewHeap), slotOf(&I::getRawHeap),       slotOf(&I::setCallbacks),
                            slotOf(&I::enableMsgType),  slotOf(&I::disableMsgType),   slotOf(&I::msgTypeEnabled),
                            slotOf(&I::startPreview),   slotOf(&I::useOverlay),       slotOf(&I::setOverlay),
                            slotOf(&I::stopPreview),    slotOf(&I::previewEnabled),   slotOf(&I::startRecording),
                            slotOf(&I::stopRecording),  slotOf(&I::recordingEnabled), slotOf(&I::releaseRecordingFrame),
                            slotOf(&I::autoFocus),      slotOf(&I::cancelAutoFocus),  slotOf(&I::takePicture),
                            slotOf(&I::cancelPicture),  slotOf(&I::setParameters),    slotOf(&I::getParameters),
                            slotOf(&I::sendCommand),    slotOf(&I::release),          slotOf(&I::dump)};
    size_t expected = 2;
    for (const size_t slot : slots)
        EXPECT_EQ(slot, expected++);
}

TEST(ContractTest, OperationsAreInTheirSlots) {
    expectPlatformSlots<CameraHardwareInterface>();
    expectPlatformSlots<KovCameraHardwareInterface>();
    expectPlatformSlots<ShotInterface>();
    EXPECT_EQ(slotOf(&ShotInterface::setCameraHardware), 26U);
}

TEST(ContractTest, FormatNamesAreComparedExactly) {
    const struct {
        const char* name;
        int32_t code;
    } cases[] = {{"yuv420p", 37}, {"yuv422p", 36},      {"yuv420sp", 35}, {"yuv422sp", 34}, {"yuv420i", 39},
                 {"rgb565", 4},   {"yuv422i-yuyv", 20}, {"YUV420SP", 0},  {"yuv420", 0},    {"", 0}};
    for (const auto& format : cases)
        EXPECT_EQ(colorFormatFromName(format.name), format.code) << format.name;
}

}  // namespace
