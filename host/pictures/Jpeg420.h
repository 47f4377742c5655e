// What every JPEG of the stand-ins is: 4:2:0 from bands of planes, by the accurate transform.
#pragma once

#include <cstdio>

#include <jpeglib.h>

namespace kov::pictures {

/// Sets up an encoder that was created; the caller starts it and hands over raw data.
inline void setUpJpeg420(jpeg_compress_struct& info, int width, int height, int quality) {
    info.image_width = static_cast<JDIMENSION>(width);
    info.image_height = static_cast<JDIMENSION>(height);
    info.input_components = 3;
    info.in_color_space = JCS_YCbCr;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, quality, TRUE);
    info.raw_data_in = TRUE;
    info.dct_method = JDCT_ISLOW;
    info.comp_info[0].h_samp_factor = 2;
    info.comp_info[0].v_samp_factor = 2;
}

}  // namespace kov::pictures
