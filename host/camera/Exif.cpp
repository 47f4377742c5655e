// What a JPEG says of itself.

#include "host/camera/Exif.h"

#include <libexif/exif-data.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace kov::camera {

namespace {

constexpr char kSoftware[] = "kovcameraadaptor " KOV_VERSION;
constexpr size_t kStart = 2;      // bytes of a JPEG before its first segment
constexpr size_t kMost = 0xFFFF;  // bytes of a segment

using Block = std::unique_ptr<ExifData, decltype(&exif_data_unref)>;

/// An entry that the standard does not want in every block: libexif gives it no memory by itself.
void addText(ExifData* block, ExifIfd ifd, ExifTag tag, const char* text) {
    ExifMem* const memory = exif_mem_new_default();
    ExifEntry* const entry = exif_entry_new_mem(memory);
    entry->size = static_cast<unsigned int>(std::strlen(text) + 1);
    entry->data = static_cast<unsigned char*>(exif_mem_alloc(memory, entry->size));
    std::memcpy(entry->data, text, entry->size);
    entry->components = entry->size;
    entry->format = EXIF_FORMAT_ASCII;
    entry->tag = tag;
    exif_content_add_entry(block->ifd[ifd], entry);
    exif_entry_unref(entry);
    exif_mem_unref(memory);
}

void addNumber(ExifData* block, ExifIfd ifd, ExifTag tag, int number) {
    ExifEntry* const entry = exif_entry_new();
    exif_content_add_entry(block->ifd[ifd], entry);
    exif_entry_initialize(entry, tag);
    if (entry->format == EXIF_FORMAT_SHORT)
        exif_set_short(entry->data, EXIF_BYTE_ORDER_INTEL, static_cast<ExifShort>(number));
    else
        exif_set_long(entry->data, EXIF_BYTE_ORDER_INTEL, static_cast<ExifLong>(number));
    exif_entry_unref(entry);
}

Block makeBlock(int width, int height, std::time_t taken, int orientation) {
    Block block(exif_data_new(), exif_data_unref);
    exif_data_set_data_type(block.get(), EXIF_DATA_TYPE_COMPRESSED);
    exif_data_set_byte_order(block.get(), EXIF_BYTE_ORDER_INTEL);
    addNumber(block.get(), EXIF_IFD_EXIF, EXIF_TAG_PIXEL_X_DIMENSION, width);
    addNumber(block.get(), EXIF_IFD_EXIF, EXIF_TAG_PIXEL_Y_DIMENSION, height);
    addNumber(block.get(), EXIF_IFD_0, EXIF_TAG_ORIENTATION, orientation);
    addText(block.get(), EXIF_IFD_0, EXIF_TAG_SOFTWARE, kSoftware);
    std::tm local = {};
    char date[20] = {};
    if (localtime_r(&taken, &local) && std::strftime(date, sizeof date, "%Y:%m:%d %H:%M:%S", &local)) {
        addText(block.get(), EXIF_IFD_0, EXIF_TAG_DATE_TIME, date);
        addText(block.get(), EXIF_IFD_EXIF, EXIF_TAG_DATE_TIME_ORIGINAL, date);
    }
    exif_data_fix(block.get());  // adds what the standard wants besides
    return block;
}

}  // namespace

void addExif(std::vector<uint8_t>& jpeg, int width, int height, std::time_t taken, int orientation) {
    if (jpeg.size() < kStart || jpeg[0] != 0xFF || jpeg[1] != 0xD8)
        return;
    const Block block = makeBlock(width, height, taken, orientation);
    unsigned char* bytes = nullptr;
    unsigned int size = 0;
    exif_data_save_data(block.get(), &bytes, &size);
    const size_t segment = size + 2;  // its length counts itself
    if (bytes && segment <= kMost) {
        std::vector<uint8_t> head = {0xFF, 0xE1, static_cast<uint8_t>(segment >> 8), static_cast<uint8_t>(segment)};
        head.insert(head.end(), bytes, bytes + size);
        jpeg.insert(jpeg.begin() + kStart, head.begin(), head.end());
    }
    std::free(bytes);
}

int orientationOf(const std::vector<uint8_t>& jpeg) {
    ExifData* const block = exif_data_new_from_data(jpeg.data(), static_cast<unsigned int>(jpeg.size()));
    if (!block)
        return kUpright;
    const ExifEntry* const entry = exif_content_get_entry(block->ifd[EXIF_IFD_0], EXIF_TAG_ORIENTATION);
    const int orientation = entry && entry->format == EXIF_FORMAT_SHORT && entry->size >= sizeof(ExifShort)
                                ? exif_get_short(entry->data, exif_data_get_byte_order(block))
                                : kUpright;
    exif_data_unref(block);
    return orientation;
}

}  // namespace kov::camera
