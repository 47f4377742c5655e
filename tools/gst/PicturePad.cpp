// imgsrc: the finished pictures.

#include "tools/gst/PicturePad.h"

#include <turbojpeg.h>

#include <utility>

#include "tools/session/Error.h"

namespace kov::gst {

namespace {

/// Width and height of a JPEG; throws for what is none.
std::pair<int, int> sizeOf(GstBuffer* buffer) {
    GstMapInfo bytes;
    if (!gst_buffer_map(buffer, &bytes, GST_MAP_READ))
        throw cam::Error("a picture's memory cannot be read");
    int width = 0;
    int height = 0;
    int subsampling = 0;
    int colors = 0;
    const tjhandle reader = tjInitDecompress();
    const int failure = tjDecompressHeader3(reader, bytes.data, bytes.size, &width, &height, &subsampling, &colors);
    tjDestroy(reader);
    gst_buffer_unmap(buffer, &bytes);
    if (failure != 0)
        throw cam::Error("the camera gave a picture that is no JPEG; set picture-format to jpeg");
    return {width, height};
}

}  // namespace

void PicturePad::pictureCame(const cam::Picture& picture) {
    if (picture.size == 0 || !linked() || !mQueue.isOpen())
        return;
    BufferPtr buffer(gst_buffer_new_memdup(picture.bytes, picture.size));
    give(std::move(buffer), picture.number, runningTime());
}

bool PicturePad::prepare(GstBuffer* buffer) {
    const auto [width, height] = sizeOf(buffer);
    if (gst_pad_has_current_caps(mPad) && width == mWidth && height == mHeight)
        return true;
    mWidth = width;
    mHeight = height;
    const CapsPtr caps(gst_caps_new_simple("image/jpeg", "width", G_TYPE_INT, width, "height", G_TYPE_INT, height,
                                           "framerate", GST_TYPE_FRACTION, 0, 1, nullptr));
    setCaps(caps.get());
    return true;
}

bool PicturePad::answer(GstQuery* query) {
    if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY)
        return false;
    gst_query_set_latency(query, TRUE, 0, GST_CLOCK_TIME_NONE);
    return true;
}

}  // namespace kov::gst
