// The parameter set as a sorted map; values are text.

#include <camera/CameraParameters.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace android {

const char CameraParameters::KEY_PREVIEW_SIZE[] = "preview-size";
const char CameraParameters::KEY_PREVIEW_FORMAT[] = "preview-format";
const char CameraParameters::KEY_PREVIEW_FRAME_RATE[] = "preview-frame-rate";
const char CameraParameters::KEY_PICTURE_SIZE[] = "picture-size";
const char CameraParameters::KEY_PICTURE_FORMAT[] = "picture-format";
const char CameraParameters::KEY_JPEG_QUALITY[] = "jpeg-quality";

String8 CameraParameters::flatten() const {
    std::string text;
    for (const auto& [key, value] : mMap) {
        if (!text.empty())
            text += ';';
        text.append(key).append(1, '=').append(value);
    }
    return String8(std::move(text));
}

void CameraParameters::unflatten(const String8& flattened) {
    mMap.clear();
    std::string_view rest(flattened.string(), flattened.size());
    while (!rest.empty()) {
        const size_t end = rest.find(';');
        const std::string_view piece = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        if (const size_t equals = piece.find('='); equals != std::string_view::npos)
            mMap.insert_or_assign(std::string(piece.substr(0, equals)), std::string(piece.substr(equals + 1)));
    }
}

void CameraParameters::set(const char* key, const char* value) {
    mMap.insert_or_assign(key, value);
}

void CameraParameters::set(const char* key, int value) {
    mMap.insert_or_assign(key, std::to_string(value));
}

const char* CameraParameters::get(const char* key) const {
    const auto entry = mMap.find(key);
    return entry == mMap.end() ? nullptr : entry->second.c_str();
}

int CameraParameters::getInt(const char* key) const {
    const char* value = get(key);
    return value ? static_cast<int>(std::strtol(value, nullptr, 10)) : -1;
}

void CameraParameters::remove(const char* key) {
    if (const auto entry = mMap.find(key); entry != mMap.end())
        mMap.erase(entry);
}

void CameraParameters::getSize(const char* key, int* width, int* height) const {
    const char* value = get(key);
    char* end = nullptr;
    const long parsedWidth = value ? std::strtol(value, &end, 10) : 0;
    const bool valid = value && end != value && *end == 'x';
    *width = valid ? static_cast<int>(parsedWidth) : -1;
    *height = valid ? static_cast<int>(std::strtol(end + 1, nullptr, 10)) : -1;
}

void CameraParameters::setSize(const char* key, int width, int height) {
    set(key, (std::to_string(width) + 'x' + std::to_string(height)).c_str());
}

void CameraParameters::setPreviewSize(int width, int height) {
    setSize(KEY_PREVIEW_SIZE, width, height);
}
void CameraParameters::getPreviewSize(int* width, int* height) const {
    getSize(KEY_PREVIEW_SIZE, width, height);
}
void CameraParameters::setPreviewFrameRate(int fps) {
    set(KEY_PREVIEW_FRAME_RATE, fps);
}
int CameraParameters::getPreviewFrameRate() const {
    return getInt(KEY_PREVIEW_FRAME_RATE);
}
void CameraParameters::setPreviewFormat(const char* format) {
    set(KEY_PREVIEW_FORMAT, format);
}
const char* CameraParameters::getPreviewFormat() const {
    return get(KEY_PREVIEW_FORMAT);
}
void CameraParameters::setPictureSize(int width, int height) {
    setSize(KEY_PICTURE_SIZE, width, height);
}
void CameraParameters::getPictureSize(int* width, int* height) const {
    getSize(KEY_PICTURE_SIZE, width, height);
}
void CameraParameters::setPictureFormat(const char* format) {
    set(KEY_PICTURE_FORMAT, format);
}
const char* CameraParameters::getPictureFormat() const {
    return get(KEY_PICTURE_FORMAT);
}

}  // namespace android
