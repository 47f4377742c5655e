// Calls of libarccamera.so. Its memory functions are left out: they are many and tell nothing.

#include <arccamera/face.h>
#include <arccamera/jpeg.h>

#include "host/calls/Relay.h"

namespace {

constexpr char kLibrary[] = "libarccamera.so";

std::string size(int32_t width, int32_t height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

}  // namespace

static std::string shown(const AMFPAF_IMAGE_INFO* image) {
    return image ? size(image->width, image->height) : "";
}
static std::string shown(const AMFPAF_FACE_RESULT* result) {
    return result ? std::to_string(result->count) : "";
}
static std::string shown(const ASSD_IMAGE* image) {
    return image ? size(image->width, image->height) : "";
}
static std::string shown(const ASSD_FACE_INPUT* faces) {
    return faces ? std::to_string(faces->count) : "";
}
static std::string shown(const ASSD_SMILE_RESULT* result) {
    return result ? std::to_string(result->ISmileNumber) : "";
}
static std::string shown(const MBITMAP* bitmap) {
    return bitmap ? size(bitmap->lWidth, bitmap->lHeight) : "";
}

KOV_RELAY_7(AMFPAF_InitialFaceEngine, ",image,,,mode,scale,max_faces")
KOV_RELAY_2(AMFPAF_SetFaceOutPriority, ",priority")
KOV_RELAY_2(AMFPAF_SetTrackingFrameNumber, ",frames")
KOV_RELAY_9(AMFPAF_FaceFeatureDetect, ",,,faces")
KOV_RELAY_3(AMFPAF_UninitialFaceEngine, "")
KOV_RELAY_4(ASSD_InitSmileEngine, ",,mode,height")
KOV_RELAY_7(ASSD_SmileDetect, ",,image,faces,smiles")
KOV_RELAY_2(ASSD_UninitSmileEngine, "")

KOV_RELAY_2(AMCM_Create, "")
KOV_RELAY_6(AMCM_RegisterEx, ",id,version,kind,use,")
KOV_RELAY_1(AMCM_Destroy, "")
KOV_RELAY_2(MStreamOpenFromMemoryBlock, ",capacity")
KOV_RELAY_3(MStreamSeek, ",origin,offset")
KOV_RELAY_1(MStreamGetSize, "")
KOV_RELAY_3(MStreamRead, ",,size")
KOV_RELAY_1(MStreamClose, "")
KOV_RELAY_4(MdBitmapSave, ",,kind,bitmap")
KOV_RELAY_6(MdBitmapSaveEx, ",,kind,bitmap,quality,format")
