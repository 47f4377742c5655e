// Calls of libActionShot.so.

#include <actionshot/actionshot.h>

#include "host/calls/Relay.h"

namespace {
constexpr char kLibrary[] = "libActionShot.so";
}

static std::string shown(const OPT_API_ASImage* image) {
    return image ? std::to_string(image->width) + "x" + std::to_string(image->height) : "";
}
static std::string shown(const ActionShot_DisplayData* data) {
    return data ? std::to_string(data->count) + " entries" : "";
}

KOV_RELAY_1(ActionShot_SetMemoryFunctions, "")
KOV_RELAY_5(ActionShot_Initialize, ",width,height,,work_memory_size")
KOV_RELAY_3(ActionShot_SetResolution, ",width,height")
KOV_RELAY_2(ActionShot_SetSceneCompletionActivationMode, ",mode")
KOV_RELAY_3(ActionShot_SetConfigurationParameter, ",parameter,value")
KOV_RELAY_4(ActionShot_SetTempMemory, ",,count,size")
KOV_RELAY_1(ActionShot_UnsetTempMemory, "")
KOV_RELAY_1(ActionShot_CancelSeries, "")
KOV_RELAY_1(ActionShot_StartSeries, "")
KOV_RELAY_1(ActionShot_IsConnected, "")
KOV_RELAY_2(ActionShot_HandleFrame, ",frame")
KOV_RELAY_2(ActionShot_GetAcquisitionDisplayData, ",data")
KOV_RELAY_1(ActionShot_AcquisitionProgress, "")
KOV_RELAY_3(ActionShot_CreateResult, ",progress,result")
KOV_RELAY_1(ActionShot_Finalize, "")
