// Frame sources of the host's camera: what the lens sees, as a function of time.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

namespace kov::camera {

/// What the lens sees. Not synchronised: one thread at a time.
class FrameSource {
public:
    virtual ~FrameSource() = default;

    /// The view at `seconds` of stream time: BGR, 8 bits a channel, exactly `size`, which is even in both directions.
    /// The pixels belong to the caller. The same time at another size shows the same moment with its own detail; a
    /// view of another shape is cut around the same centre. Times mostly grow; a source that cannot go back shows the
    /// frame that it read last. Empty when the source broke; `error` then says why.
    virtual cv::Mat frame(double seconds, cv::Size size) = 0;

    /// Called after each still picture. A scene may go on to its next act.
    virtual void pictureTaken() {}

    /// Why `frame` returned nothing.
    const std::string& error() const { return mError; }

protected:
    std::string mError;
};

/// A built-in scene, for lists and help texts.
struct SceneInfo {
    std::string name;
    std::string summary;
    std::string options;  // "name=default" pairs joined by ", "; empty when it has none
};

/// The built-in scenes; the first one is what an empty source text means.
const std::vector<SceneInfo>& builtinScenes();

/// Opens a source:
///   scene:NAME[?option=value&...]   a built-in scene
///   FILE.jpg[?path=PATH&seconds=N]  a still picture with a camera path over it
///   FILE.mp4                        a video, which starts over at its end
///   FOLDER[?seconds=N]              the pictures of a folder in the order of their names, N seconds each
///   /dev/videoN                     a webcam
///   push:                           what the program itself pushes (host/control/Control.h)
///   turns:SOURCE|SOURCE[|...]       these sources in turn, each until a picture was taken
/// Returns null after filling `error` with one line that says what to do.
std::unique_ptr<FrameSource> openSource(const std::string& text, std::string* error);

/// Empty when `text` can be opened, else the line that `openSource` gives.
std::string checkSource(const std::string& text);

}  // namespace kov::camera
