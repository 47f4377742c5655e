// Where a picture goes: what -o says.
#pragma once

#include <string>

namespace kov::cam {

/// What `-o` says, taken apart:
///   DIR                a folder; pictures are DIR/MODE-001.jpg and so on
///   out/photo.jpg      a file; the next pictures are out/photo-2.jpg and so on
///   out/%Y%m%d-{n}.jpg a pattern: the fields of strftime, {mode}, {n} (a number of three digits), {word} (what the mode
///                      says of the picture, as the effect of a cartoon)
///   -                  standard output
class OutputName {
public:
    /// Throws Error for an empty text and for a pattern that cannot be filled in.
    OutputName(const std::string& text, std::string mode);

    bool standardOutput() const { return mPattern == "-"; }
    /// The folder that pictures and preview frames go to.
    std::string folder() const;
    /// The path of the `number`th picture, from 1, taken now.
    std::string path(int number, const std::string& word) const;
    /// The number after the highest that the folder's files have: numbers are not used again.
    int firstNumber() const;

private:
    std::string mPattern;
    const std::string mMode;
};

}  // namespace kov::cam
