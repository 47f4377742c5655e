// UTF-16 text, the form in which `dump` gets its arguments.
#pragma once

#include <cstddef>
#include <string>
#include <utility>

namespace android {

class String16 {
public:
    String16() = default;
    explicit String16(std::u16string text) : mText(std::move(text)) {}

    const char16_t* string() const { return mText.c_str(); }
    size_t size() const { return mText.size(); }

private:
    std::u16string mText;
};

}  // namespace android
