// The JPEG encoder that a closed library calls back. Width, height and capacity in two bytes each,
// then the frame's pixels, repeated as far as the frame reaches.
#include <cstdlib>
#include <vector>

#include "fuzz/Targets.h"
#include "shots/addme/JpegEncoderAddMe.h"

void kov::test::runEncoder(const uint8_t* bytes, size_t size) {
    if (size < 7)
        return;
    const auto number = [&](size_t at) { return bytes[at] + 256U * bytes[at + 1]; };
    const unsigned int width = number(0), height = number(2), capacity = number(4);
    const uint64_t frameSize = uint64_t{width} * height * 3 / 2;
    if (frameSize > (1 << 18))
        return;
    std::vector<uint8_t> frame(frameSize);
    for (size_t i = 0; i < frame.size(); ++i)
        frame[i] = bytes[6 + i % (size - 6)];
    std::vector<uint8_t> out(capacity);
    const int written = android::jpeg_compress_yuv420sp_AddMe(out.data(), capacity, frame.data(), width, height);
    if (written < 0 || static_cast<size_t>(written) > out.size())
        std::abort();
}
