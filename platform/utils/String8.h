// Text in bytes, the form in which a parameter set is flattened.
#pragma once

#include <cstddef>
#include <string>
#include <utility>

namespace android {

class String8 {
public:
    String8() = default;
    String8(const char* text) : mText(text ? text : "") {}
    explicit String8(std::string text) : mText(std::move(text)) {}

    const char* string() const { return mText.c_str(); }
    size_t size() const { return mText.size(); }

private:
    std::string mText;
};

}  // namespace android
