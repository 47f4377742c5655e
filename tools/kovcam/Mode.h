// What kovcam knows of a capture mode. Each has a file in modes/, and that file is all it takes to add one:
//
//     class Panorama : public Mode {
//     public:
//         Panorama() : Mode(KOV_MODE_PANORAMA) {}
//         void addOptions(Options& options) override { options.number(...); }
//         void run(Camera& camera) override { camera.session().startPreview(); ... }
//         std::vector<Demo> demos() const override { return {{"A sweep", {"-i", "scene:landscape"}}}; }
//     };
//     const RegisterMode<Panorama> registered;
//
// `run` is called with the mode selected and the preview not yet started. It ends when the pictures have arrived.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kov::cam {

class Camera;
class Options;

/// One item of the demonstration: `kovcam shoot MODE` with these arguments.
struct Demo {
    std::string title;
    std::vector<std::string> arguments;
    int previewEvery = 10;  // which preview frames the gallery shows
};

/// Something that the mode does to the preview for at least 100 frames, for kovcam rates.
struct Work {
    std::string name;  // where a mode has several
    std::string source;
    int32_t command = 0;  // begins it, once the preview runs; 0 for none
    int32_t argument = 0;
};

class Mode {
public:
    virtual ~Mode() = default;

    const std::string name;
    const int32_t code;
    const std::string summary;

    /// Adds the mode's own options; the common ones are there already.
    virtual void addOptions(Options&) {}
    /// May change the source text before the camera is opened, for a mode that takes several (-i may be given as often
    /// as `mostSources` says). Throws Error.
    virtual size_t mostSources() const { return 1; }
    virtual std::string source(const std::vector<std::string>& sources) const { return sources.front(); }
    virtual void run(Camera& camera) = 0;
    virtual std::vector<Demo> demos() const = 0;
    virtual std::vector<Work> works() const { return {{"", "scene:still-life"}}; }

protected:
    /// Name and summary are those of the mode's description in shots/.
    explicit Mode(int32_t modeCode);
};

/// All modes, in the order of their codes.
const std::vector<std::unique_ptr<Mode>>& allModes();
void addMode(std::unique_ptr<Mode> mode);

template <typename Kind>
struct RegisterMode {
    RegisterMode() { addMode(std::make_unique<Kind>()); }
};

}  // namespace kov::cam
