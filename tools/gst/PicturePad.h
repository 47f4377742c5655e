// imgsrc: the finished pictures.
#pragma once

#include <string>

#include "tools/gst/SourcePad.h"
#include "tools/session/Listener.h"

namespace kov::gst {

inline constexpr char kPictureTemplate[] =
    "image/jpeg, width=(int)[ 1, 65535 ], height=(int)[ 1, 65535 ], framerate=(fraction)0/1";

/// Pictures come when they come, in the sizes that the mode makes; the caps tell the size of the next one.
class PicturePad : public SourcePad {
public:
    PicturePad(GstElement* element, Hooks hooks) : SourcePad(element, "imgsrc", kMostWaiting, std::move(hooks)) {}

    /// Copies a picture; not one without bytes, nor while nothing is linked. The camera's thread.
    void pictureCame(const cam::Picture& picture);

private:
    static constexpr size_t kMostWaiting = 16;  // more than a burst

    bool prepare(GstBuffer* buffer) override;
    bool answer(GstQuery* query) override;

    // The task's, and while it does not run nobody's.
    int mWidth = 0;
    int mHeight = 0;
};

}  // namespace kov::gst
