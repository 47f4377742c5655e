// Calls of libcaps.so.

#include <caps/caps.h>

#include "host/calls/Relay.h"

namespace {
constexpr char kLibrary[] = "libcaps.so";
}

static std::string shown(const caps_data* data) {
    return data ? std::to_string(data->length) + " bytes" : "";
}

KOV_RELAY_1(caps_pixelBitSize, "format")
KOV_RELAY_6(caps_createImage, "pixels,width,height,stride,format,")
KOV_RELAY_1(caps_destroyImage, "")
KOV_RELAY_2(caps_createBuffer, "capacity,")
KOV_RELAY_1(caps_destroyBuffer, "")
KOV_RELAY_3(ctstream_createBufferStream, "buffer,mode,")
KOV_RELAY_1(ctstream_destroy, "")
KOV_RELAY_3(caps_createSession, ",mode,")
KOV_RELAY_2(caps_newSessionWithRaw, ",")
KOV_RELAY_1(caps_destroySession, "")
KOV_RELAY_1(caps_beginCartoon, "")
KOV_RELAY_2(caps_setCartoon, ",on")
KOV_RELAY_1(caps_endCartoon, "")
KOV_RELAY_2(caps_applySketch, ",color")
KOV_RELAY_1(caps_beginStamp, "")
KOV_RELAY_3(caps_setStamp, ",smoothness,threshold")
KOV_RELAY_1(caps_endStamp, "")
KOV_RELAY_1(caps_beginRotate, "")
KOV_RELAY_2(caps_setRotate, ",degrees")
KOV_RELAY_1(caps_endRotate, "")
KOV_RELAY_2(caps_setJpegQuality, ",quality")
KOV_RELAY_7(caps_render, ",,width,height,flags,mode,")
KOV_RELAY_1(caps_doNextIteration, "")
KOV_RELAY_2(caps_estimateIterationCount, ",total")
KOV_RELAY_2(caps_getCurIterationCount, ",done")
KOV_RELAY_1(caps_destroyIterator, "")
KOV_RELAY_4(caps_renderAsRawToBuffer, ",,flags,mode")
