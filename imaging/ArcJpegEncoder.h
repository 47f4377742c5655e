// JPEG pictures from YUV frames, through the vendor's imaging library.
#pragma once

#include <arccamera/jpeg.h>
#include <binder/IMemory.h>

#include <cstdint>
#include <optional>

#include "imaging/TaggedLog.h"

namespace android {

/// What a shot brings of its own to an encoding.
struct ArcJpegUser {
    /// Lines of the encoding that are written, as errors.
    enum class Lines { None, FirstAndLast, All };

    uint32_t registeredUse;  // a value of the library's
    TaggedLog log;
    Lines lines;
};

/// A 4:2:0 frame with interleaved chroma, V first: width x height luma bytes and width x height / 2 chroma bytes,
/// without padding. Borrowed, and only read. The sides are positive.
struct ArcJpegFrame {
    uint8_t* pixels;
    int32_t width;
    int32_t height;
    uint32_t format;  // the library's code
};

/// The quality that the encoder gets for the camera parameter "jpeg-quality" (any value, -1 when it is missing).
int32_t arcJpegQuality(int32_t jpegQualityParameter);
/// The same where there is no vendor layer to ask.
constexpr int32_t kArcJpegQualityWithoutHardware = 85;

/// One frame on its way to a picture. It is made (the frame is encoded, and not looked at any more), then its user
/// delivers the picture, then it is ended:
///
///     ArcJpegEncoding encoding(kUser, frame, quality);
///     if (encoding.picture().get())
///         ... deliver encoding.picture() ...
///     encoding.end();
///
/// Runs on the caller's thread and takes no lock. The library's stream stays open from the making to the end.
class ArcJpegEncoding {
public:
    /// Without a `quality` the library takes its own.
    ArcJpegEncoding(const ArcJpegUser& user, const ArcJpegFrame& frame, std::optional<int32_t> quality);
    /// Closes the stream, without a line, if the encoding was not ended.
    ~ArcJpegEncoding();
    ArcJpegEncoding(const ArcJpegEncoding&) = delete;
    ArcJpegEncoding& operator=(const ArcJpegEncoding&) = delete;

    /// The picture in a fresh heap of exactly its size; empty when the library opened no stream, or after the end.
    /// Whatever size the library reports is what it has, 0 included.
    const sp<IMemory>& picture() const { return mPicture; }
    /// Whether there is a picture that has bytes.
    bool succeeded() const { return mPicture.get() && mPicture->size() > 0; }

    /// Closes the stream and drops the picture, with the lines that come after the delivery. Nothing where no stream
    /// was opened.
    void end();

private:
    void encode(const ArcJpegFrame& frame, std::optional<int32_t> quality);
    void closeStream();
    bool writes(ArcJpegUser::Lines lines) const { return mUser.lines >= lines; }

    const ArcJpegUser mUser;
    MHandle mManager = nullptr;
    MHandle mStream = nullptr;
    MBITMAP mBitmap = {};
    sp<IMemory> mPicture;
};

}  // namespace android
