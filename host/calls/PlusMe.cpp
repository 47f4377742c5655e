// Calls of libPlusMe.so.

#include <plusme/plusme.h>

#include "host/calls/Relay.h"

namespace {
constexpr char kLibrary[] = "libPlusMe.so";
}

static std::string shown(const PME_API_Image* image) {
    return image ? std::to_string(image->width) + "x" + std::to_string(image->height) : "";
}

KOV_RELAY_0(PlusMe_GetVersion)
KOV_RELAY_9(PlusMe_PreInitialize, "picture_width,picture_height,preview_width,preview_height,format,,mode,capacity,")
KOV_RELAY_0(PlusMe_GetPermanentBufferSize)
KOV_RELAY_3(PlusMe_Initialize, ",,size")
KOV_RELAY_3(PlusMe_SetConfigurationParameter, ",parameter,value")
KOV_RELAY_5(PlusMe_SetResolution, ",picture_width,picture_height,preview_width,preview_height")
KOV_RELAY_0(PlusMe_GetTemporaryBufferSize)
KOV_RELAY_3(PlusMe_SetTempBuffer, ",,size")
KOV_RELAY_1(PlusMe_StartCapture, "")
KOV_RELAY_2(PlusMe_HandlePreview, ",image")
KOV_RELAY_4(PlusMe_HandleSnapshotJpeg, ",,size,image")
KOV_RELAY_2(PlusMe_CreateResult, ",progress")
KOV_RELAY_3(PlusMe_GetResultJpeg, ",,size")
KOV_RELAY_2(PlusMe_GetFirstPersonPosition, ",position")
KOV_RELAY_1(PlusMe_SwitchFirstPersonPosition, "")
KOV_RELAY_1(PlusMe_CancelCapture, "")
KOV_RELAY_1(PlusMe_Finalize, "")
