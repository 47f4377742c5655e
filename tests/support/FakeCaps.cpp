// libcaps.so for unit tests: records its calls and answers from a script.

#include "tests/support/FakeCaps.h"

#include <cstring>

#include "tests/support/Recorder.h"

using kov::test::fakeCaps;
using kov::test::record;
using kov::test::text;

namespace {

std::atomic<int> gObjects{0};

/// Counts the objects alive.
struct Counted {
    Counted() { ++gObjects; }
    ~Counted() { --gObjects; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
};

/// The record that an image handle points to. This library would release the pixels, if nobody told it otherwise.
struct Image {
    caps_image head = {1};
    caps_data pixels = {};
    Counted counted;
};

struct Buffer {
    caps_data head = {};
    std::string bytes;
    Counted counted;
};

caps_result call(const char* name, const std::string& arguments = "") {
    record(std::string("caps.") + name + arguments);
    if (fakeCaps().during)
        fakeCaps().during(name);
    const auto result = fakeCaps().results.find(name);
    return result == fakeCaps().results.end() ? CAPS_SUCCESS : result->second;
}

template <typename Object, typename... Values>
caps_result make(Object** object, const char* name, const std::string& arguments, Values... values) {
    const caps_result result = call(name, arguments);
    *object = result == CAPS_SUCCESS ? new Object{values...} : nullptr;
    return result;
}

void fill(caps_data* data) {
    auto* const buffer = reinterpret_cast<Buffer*>(data);
    buffer->bytes = fakeCaps().jpeg;
    buffer->head = {static_cast<int32_t>(buffer->bytes.size()), reinterpret_cast<uint8_t*>(buffer->bytes.data())};
}

template <typename Object>
caps_result destroy(Object* object, const char* name) {
    const caps_result result = call(name, object ? "" : " null");
    delete object;
    return result;
}

}  // namespace

struct caps_stream {
    caps_data* data = nullptr;
    bool input = false;
    Counted counted;
};
struct cips {
    Counted counted;
};
struct caps_iterator {
    caps_stream* output = nullptr;
    size_t step = 0;
    Counted counted;
};

namespace kov::test {

FakeCaps& fakeCaps() {
    static FakeCaps fake;
    return fake;
}

int fakeCapsObjects() {
    return gObjects;
}

}  // namespace kov::test

int32_t caps_pixelBitSize(int32_t format) {
    call("pixelBitSize", text(" %d", format));
    return 12;
}

caps_result caps_createImage(const caps_data* pixels, int32_t width, int32_t height, int32_t stride, int32_t format,
                             caps_image** image) {
    Image* made = nullptr;
    const caps_result result =
        make(&made, "createImage",
             text(" %d of %d, %dx%d stride %d %d", pixels->length, pixels->data[0], width, height, stride, format));
    if (made)
        made->pixels = *pixels;
    *image = reinterpret_cast<caps_image*>(made);
    return result;
}

caps_result caps_destroyImage(caps_image* image) {
    auto* const made = reinterpret_cast<Image*>(image);
    return destroy(made, made->head.owns_pixels ? "destroyImage with its pixels" : "destroyImage");
}

caps_result caps_createBuffer(int32_t capacity, caps_data** buffer) {
    Buffer* made = nullptr;
    const caps_result result = make(&made, "createBuffer", text(" %d", capacity));
    *buffer = reinterpret_cast<caps_data*>(made);
    return result;
}

caps_result caps_destroyBuffer(caps_data* buffer) {
    return destroy(reinterpret_cast<Buffer*>(buffer), "destroyBuffer");
}

caps_result ctstream_createBufferStream(caps_data* buffer, int32_t mode, caps_stream** stream) {
    const bool input = buffer->length > 0;
    const caps_result result =
        make(stream, input ? "createBufferStream in" : "createBufferStream out", text(" %d", mode));
    if (*stream) {
        (*stream)->data = buffer;
        (*stream)->input = input;
    }
    return result;
}

caps_result ctstream_destroy(caps_stream* stream) {
    return destroy(stream, stream->input ? "destroyStream in" : "destroyStream out");
}

caps_result caps_createSession(caps_stream*, int32_t mode, cips** session) {
    return make(session, "createSession", text(" %d", mode));
}

caps_result caps_newSessionWithRaw(caps_image* source, cips** session) {
    const caps_data& pixels = reinterpret_cast<const Image*>(source)->pixels;
    return make(session, "newSessionWithRaw", text(" of %d..%d", pixels.data[0], pixels.data[pixels.length - 1]));
}

caps_result caps_destroySession(cips* session) {
    return destroy(session, "destroySession");
}

caps_result caps_beginCartoon(cips*) {
    return call("beginCartoon");
}
caps_result caps_setCartoon(cips*, int32_t on) {
    return call("setCartoon", text(" %d", on));
}
caps_result caps_endCartoon(cips*) {
    return call("endCartoon");
}
caps_result caps_applySketch(cips*, int32_t color) {
    return call("applySketch", text(" %d", color));
}
caps_result caps_beginStamp(cips*) {
    return call("beginStamp");
}
caps_result caps_setStamp(cips*, int32_t smoothness, int32_t threshold) {
    return call("setStamp", text(" %d %d", smoothness, threshold));
}
caps_result caps_endStamp(cips*) {
    return call("endStamp");
}
caps_result caps_beginRotate(cips*) {
    return call("beginRotate");
}
caps_result caps_setRotate(cips*, int32_t degrees) {
    return call("setRotate", text(" %d", degrees));
}
caps_result caps_endRotate(cips*) {
    return call("endRotate");
}
caps_result caps_setJpegQuality(cips*, float quality) {
    return call("setJpegQuality", text(" %.2f", static_cast<double>(quality)));
}

caps_result caps_render(cips*, caps_stream* output, int32_t width, int32_t height, int32_t flags, int32_t mode,
                        caps_iterator** iterator) {
    const std::string arguments = text(" %dx%d %d %d%s", width, height, flags, mode, iterator ? "" : " at once");
    if (iterator) {
        const caps_result result = make(iterator, "render", arguments);
        if (*iterator)
            (*iterator)->output = output;
        return result;
    }
    const caps_result result = call("render", arguments);
    if (result == CAPS_SUCCESS)
        fill(output->data);
    return result;
}

caps_result caps_doNextIteration(caps_iterator* iterator) {
    const caps_result result = call("doNextIteration");
    if (++iterator->step < fakeCaps().counts.size())
        return result;
    fill(iterator->output->data);
    return 0;
}

caps_result caps_estimateIterationCount(caps_iterator*, int32_t* total) {
    *total = fakeCaps().total;
    return call("estimateIterationCount");
}

caps_result caps_getCurIterationCount(caps_iterator* iterator, int32_t* done) {
    *done = fakeCaps().counts[iterator->step - 1];
    return call("getCurIterationCount");
}

caps_result caps_destroyIterator(caps_iterator* iterator) {
    return destroy(iterator, "destroyIterator");
}

caps_result caps_renderAsRawToBuffer(cips*, caps_image* destination, int32_t flags, int32_t mode) {
    const caps_data& pixels = reinterpret_cast<Image*>(destination)->pixels;
    const caps_result result = call("renderAsRawToBuffer", text(" over %d, %d %d", pixels.data[0], flags, mode));
    if (result == CAPS_SUCCESS)
        std::memset(pixels.data, fakeCaps().look, static_cast<size_t>(pixels.length));
    return result;
}
