// libcaps.so for unit tests: records its calls and answers from a script.

#include "tests/support/FakeCaps.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "tests/support/Recorder.h"

using namespace kov::test;

namespace {

std::atomic<int> gObjects{0};

/// The record that an image handle points to. This library would release the pixels, if nobody told it otherwise.
struct Image : caps_image {
    caps_data pixels;
};
struct Buffer : caps_data {
    std::string bytes;
};

caps_result call(const char* name, const std::string& arguments = "") {
    record(std::string("caps.") + name + arguments);
    if (fakeCaps().during)
        fakeCaps().during(name);
    const auto result = fakeCaps().results.find(name);
    return result == fakeCaps().results.end() ? CAPS_SUCCESS : result->second;
}

/// `Handle`: what an object is to the caller; null where the call fails.
template <typename Object, typename Handle>
caps_result make(Handle** handle, const char* name, const std::string& arguments) {
    const caps_result result = call(name, arguments);
    *handle = result == CAPS_SUCCESS && !fakeCaps().makesNothing.contains(name) ? new Object{} : nullptr;
    gObjects += *handle != nullptr;
    return result;
}

template <typename Object>
caps_result destroy(Object* object, const char* name) {
    delete object;
    --gObjects;
    return call(name);
}

void fill(caps_data* data) {
    auto* const buffer = static_cast<Buffer*>(data);
    buffer->bytes = fakeCaps().jpeg;
    buffer->length = static_cast<int32_t>(buffer->bytes.size());
    buffer->data = reinterpret_cast<uint8_t*>(buffer->bytes.data());
}

}  // namespace

struct caps_stream {
    caps_data* data;
    bool input;
};
struct cips {};
struct caps_iterator {
    caps_stream* output;
    size_t step;
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
    return fakeCaps().bitsPerPixel;
}

caps_result caps_createImage(const caps_data* pixels, int32_t width, int32_t height, int32_t stride, int32_t format,
                             caps_image** image) {
    const caps_result result = make<Image>(
        image, "createImage",
        text(" %d of %d, %dx%d stride %d %d", pixels->length, pixels->data[0], width, height, stride, format));
    if (auto* const made = static_cast<Image*>(*image))
        *made = {{1}, *pixels};
    return result;
}
caps_result caps_destroyImage(caps_image* image) {
    return destroy(static_cast<Image*>(image), image->owns_pixels ? "destroyImage with its pixels" : "destroyImage");
}

caps_result caps_createBuffer(int32_t capacity, caps_data** buffer) {
    return make<Buffer>(buffer, "createBuffer", text(" %d", capacity));
}
caps_result caps_destroyBuffer(caps_data* buffer) {
    return destroy(static_cast<Buffer*>(buffer), "destroyBuffer");
}

caps_result ctstream_createBufferStream(caps_data* buffer, int32_t mode, caps_stream** stream) {
    const bool input = buffer->length > 0;
    const caps_result result =
        make<caps_stream>(stream, input ? "createBufferStream in" : "createBufferStream out", text(" %d", mode));
    if (*stream)
        **stream = {buffer, input};
    return result;
}
caps_result ctstream_destroy(caps_stream* stream) {
    return destroy(stream, stream->input ? "destroyStream in" : "destroyStream out");
}

caps_result caps_createSession(caps_stream* input, int32_t mode, cips** session) {
    return make<cips>(session, "createSession", text(" %d%s", mode, input->input ? "" : " of the output"));
}
caps_result caps_newSessionWithRaw(caps_image* source, cips** session) {
    const auto [length, bytes] = static_cast<const Image*>(source)->pixels;
    return make<cips>(session, "newSessionWithRaw", text(" of %d..%d", bytes[0], bytes[length - 1]));
}
caps_result caps_destroySession(cips* session) {
    return destroy(session, "destroySession");
}

// What is done to a session, without a value or with one.
#define STEP(name)                   \
    caps_result caps_##name(cips*) { \
        return call(#name);          \
    }
#define STEP_WITH(name)                             \
    caps_result caps_##name(cips*, int32_t value) { \
        return call(#name, text(" %d", value));     \
    }
STEP(beginCartoon)
STEP_WITH(setCartoon)
STEP(endCartoon)
STEP_WITH(applySketch)
STEP(beginStamp)
caps_result caps_setStamp(cips*, int32_t smoothness, int32_t threshold) {
    return call("setStamp", text(" %d %d", smoothness, threshold));
}
STEP(endStamp)
STEP(beginRotate)
STEP_WITH(setRotate)
STEP(endRotate)
caps_result caps_setJpegQuality(cips*, float quality) {
    return call("setJpegQuality", text(" %.2f", static_cast<double>(quality)));
}

caps_result caps_render(cips*, caps_stream* output, int32_t width, int32_t height, int32_t flags, int32_t mode,
                        caps_iterator** iterator) {
    const std::string arguments = text(" %dx%d %d %d%s", width, height, flags, mode, iterator ? "" : " at once") +
                                  (output->input ? " into the input" : "");
    const caps_result result =
        iterator ? make<caps_iterator>(iterator, "render", arguments) : call("render", arguments);
    if (iterator && *iterator)
        (*iterator)->output = output;
    if (!iterator && result == CAPS_SUCCESS)
        fill(output->data);
    return result;
}

caps_result caps_doNextIteration(caps_iterator* iterator) {
    const caps_result result = call("doNextIteration");
    if (++iterator->step < fakeCaps().counts.size() || fakeCaps().endless)
        return result;
    fill(iterator->output->data);
    return 0;
}

caps_result caps_estimateIterationCount(caps_iterator*, int32_t* total) {
    *total = fakeCaps().total;
    return call("estimateIterationCount");
}

caps_result caps_getCurIterationCount(caps_iterator* iterator, int32_t* done) {
    *done = fakeCaps().counts[std::min(iterator->step, fakeCaps().counts.size()) - 1];
    return call("getCurIterationCount");
}

caps_result caps_destroyIterator(caps_iterator* iterator) {
    return destroy(iterator, "destroyIterator");
}

caps_result caps_renderAsRawToBuffer(cips*, caps_image* destination, int32_t flags, int32_t mode) {
    const caps_data& pixels = static_cast<Image*>(destination)->pixels;
    const caps_result result = call("renderAsRawToBuffer", text(" over %d, %d %d", pixels.data[0], flags, mode));
    if (result == CAPS_SUCCESS && fakeCaps().renderRaw)
        fakeCaps().renderRaw(pixels.data);
    else if (result == CAPS_SUCCESS)
        std::memset(pixels.data, fakeCaps().look, static_cast<size_t>(pixels.length));
    return result;
}
