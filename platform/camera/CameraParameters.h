// The key/value parameter set of a camera hardware layer.
#pragma once

#include <utils/String8.h>

#include <functional>
#include <map>
#include <string>

namespace android {

/// A copyable map from names to text values, with the sizes and formats that every camera has.
/// Not synchronised: a copy belongs to one thread at a time.
class CameraParameters {
public:
    CameraParameters() = default;
    explicit CameraParameters(const String8& flattened) { unflatten(flattened); }

    /// "key=value" pairs joined by ';', in the order of the keys.
    String8 flatten() const;
    /// Replaces the whole set. Pieces without '=' are ignored.
    void unflatten(const String8& flattened);

    void set(const char* key, const char* value);
    void set(const char* key, int value);
    /// The value, valid until the set changes, or null when the key is missing.
    const char* get(const char* key) const;
    /// The value as a decimal number; -1 when the key is missing, 0 when it is not a number.
    int getInt(const char* key) const;
    void remove(const char* key);

    void setPreviewSize(int width, int height);
    /// Fills both; -1 and -1 when the set has no such size.
    void getPreviewSize(int* width, int* height) const;
    void setPreviewFrameRate(int fps);
    int getPreviewFrameRate() const;
    void setPreviewFormat(const char* format);
    /// The format's name, or null when the set has none.
    const char* getPreviewFormat() const;
    void setPictureSize(int width, int height);
    void getPictureSize(int* width, int* height) const;
    void setPictureFormat(const char* format);
    const char* getPictureFormat() const;

    static const char KEY_PREVIEW_SIZE[];
    static const char KEY_PREVIEW_FORMAT[];
    static const char KEY_PREVIEW_FRAME_RATE[];
    static const char KEY_PICTURE_SIZE[];
    static const char KEY_PICTURE_FORMAT[];
    static const char KEY_JPEG_QUALITY[];

private:
    void getSize(const char* key, int* width, int* height) const;
    void setSize(const char* key, int width, int height);

    std::map<std::string, std::string, std::less<>> mMap;
};

}  // namespace android
