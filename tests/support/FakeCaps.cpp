// libcaps.so for tests: records its calls and answers from a script.

#include "tests/support/FakeCaps.h"

#include <algorithm>
#include <cstring>

#include "tests/support/ScriptedCall.h"

using namespace kov::test;

namespace {

/// The record that an image handle points to. This library would release the pixels, if nobody told it otherwise.
struct Image : caps_image {
    caps_data pixels = {};
    int first() const { return pixels.length > 0 ? pixels.data[0] : -1; }
    int last() const { return pixels.length > 0 ? pixels.data[pixels.length - 1] : -1; }
};
struct Buffer : caps_data {
    std::string bytes;
};

constexpr caps_result kFailed = 6;

struct Outcome {
    operator caps_result() const { return result; }
    caps_result result;
    uint32_t how;  // it misbehaves, beyond its result
};

Outcome call(const char* name, const std::string& arguments = "") {
    const uint32_t how = ask(name);
    const caps_result usual = how == 1 ? kFailed : CAPS_SUCCESS;
    return {scriptedCall(gFakeCaps, name, std::string("caps.") + name + arguments, usual), how};
}

/// The object, which begins as told, goes to `handle`; null where the call fails.
template <typename Object, typename Handle>
caps_result make(Handle** handle, const Object& object, const char* name, const std::string& arguments) {
    const Outcome outcome = call(name, arguments);
    const uint32_t how = outcome != CAPS_SUCCESS ? 1 : gFakeCaps.makesNothing.contains(name) ? 2 : outcome.how;
    *handle = nullptr;
    const bool success = kov::test::make<Object>(how, handle);
    if (*handle)
        *use<Object>(*handle) = object;
    return success ? CAPS_SUCCESS : outcome == CAPS_SUCCESS ? kFailed : outcome.result;
}

template <typename Object>
caps_result destroy(const void* object, const char* name) {
    giveBack<Object>(object);
    return call(name);
}

void fill(caps_data* data, uint32_t how) {
    auto* const buffer = use<Buffer>(data);
    buffer->bytes = gFakeCaps.jpeg;
    const auto length = static_cast<int32_t>(buffer->bytes.size());
    buffer->length = how > 2 ? std::min(absurd(how), 0) : length;
    buffer->data = how == 2 ? nullptr : reinterpret_cast<uint8_t*>(buffer->bytes.data());
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

int32_t caps_pixelBitSize(int32_t format) {
    return numberOf(call("pixelBitSize", text(" %d", format)).how, gFakeCaps.bitsPerPixel);
}

caps_result caps_createImage(const caps_data* pixels, int32_t width, int32_t height, int32_t stride, int32_t format,
                             caps_image** image) {
    const Image made = {{1}, *pixels};
    return make(image, made, "createImage",
                text(" %d of %d, %dx%d stride %d %d", pixels->length, made.first(), width, height, stride, format));
}
caps_result caps_destroyImage(caps_image* image) {
    // Pixels that it owned it would release too: as bad as no image.
    return destroy<Image>(image->owns_pixels ? nullptr : image, "destroyImage");
}

caps_result caps_createBuffer(int32_t capacity, caps_data** buffer) {
    return make(buffer, Buffer(), "createBuffer", text(" %d", capacity));
}
caps_result caps_destroyBuffer(caps_data* buffer) {
    return destroy<Buffer>(buffer, "destroyBuffer");
}

caps_result ctstream_createBufferStream(caps_data* buffer, int32_t mode, caps_stream** stream) {
    const bool input = buffer->length > 0;
    const char* const name = input ? "createBufferStream in" : "createBufferStream out";
    return make(stream, caps_stream{buffer, input}, name, text(" %d", mode));
}
caps_result ctstream_destroy(caps_stream* stream) {
    return destroy<caps_stream>(stream, stream->input ? "destroyStream in" : "destroyStream out");
}

caps_result caps_createSession(caps_stream* input, int32_t mode, cips** session) {
    const caps_data* const source = use<caps_stream>(input)->data;
    if (source->length > 0)
        static_cast<const volatile uint8_t*>(source->data)[source->length - 1];
    return make(session, cips(), "createSession", text(" %d%s", mode, input->input ? "" : " of the output"));
}
caps_result caps_newSessionWithRaw(caps_image* source, cips** session) {
    const auto* const image = use<Image>(source);
    return make(session, cips(), "newSessionWithRaw", text(" of %d..%d", image->first(), image->last()));
}
caps_result caps_destroySession(cips* session) {
    return destroy<cips>(session, "destroySession");
}

// What is done to a session, with values or without.
#define STEP(name, arguments, ...)         \
    caps_result caps_##name(__VA_ARGS__) { \
        use<cips>(session);                \
        return call(#name, arguments);     \
    }
STEP(beginCartoon, "", cips* session)
STEP(setCartoon, text(" %d", on), cips* session, int32_t on)
STEP(endCartoon, "", cips* session)
STEP(applySketch, text(" %d", color), cips* session, int32_t color)
STEP(beginStamp, "", cips* session)
STEP(setStamp, text(" %d %d", smoothness, threshold), cips* session, int32_t smoothness, int32_t threshold)
STEP(endStamp, "", cips* session)
STEP(beginRotate, "", cips* session)
STEP(setRotate, text(" %d", degrees), cips* session, int32_t degrees)
STEP(endRotate, "", cips* session)
STEP(setJpegQuality, text(" %.2f", static_cast<double>(quality)), cips* session, float quality)

caps_result caps_render(cips* session, caps_stream* output, int32_t width, int32_t height, int32_t flags, int32_t mode,
                        caps_iterator** iterator) {
    use<cips>(session);
    const std::string arguments = text(" %dx%d %d %d%s", width, height, flags, mode, iterator ? "" : " at once") +
                                  (use<caps_stream>(output)->input ? " into the input" : "");
    if (!iterator) {
        const Outcome outcome = call("render", arguments);
        if (outcome == CAPS_SUCCESS)
            fill(output->data, outcome.how);
        return outcome;
    }
    return make(iterator, caps_iterator{output, 0}, "render", arguments);
}

caps_result caps_doNextIteration(caps_iterator* iterator) {
    const Outcome outcome = call("doNextIteration");
    use<caps_iterator>(iterator)->step += outcome.how == 0 || outcome.how > 8;  // else it stands still
    if (outcome.how == 1 || iterator->step < gFakeCaps.counts.size() || gFakeCaps.endless)
        return outcome;
    fill(iterator->output->data, outcome.how);
    return 0;
}

caps_result caps_estimateIterationCount(caps_iterator* iterator, int32_t* total) {
    use<caps_iterator>(iterator);
    const Outcome outcome = call("estimateIterationCount");
    tell(outcome == CAPS_SUCCESS ? outcome.how : 1, total, gFakeCaps.total);
    return outcome;
}

caps_result caps_getCurIterationCount(caps_iterator* iterator, int32_t* done) {
    const Outcome outcome = call("getCurIterationCount");
    const size_t step = std::clamp<size_t>(use<caps_iterator>(iterator)->step, 1, gFakeCaps.counts.size());
    tell(outcome == CAPS_SUCCESS ? outcome.how : 1, done, gFakeCaps.counts[step - 1]);
    return outcome;
}

caps_result caps_destroyIterator(caps_iterator* iterator) {
    return destroy<caps_iterator>(iterator, "destroyIterator");
}

caps_result caps_renderAsRawToBuffer(cips* session, caps_image* destination, int32_t flags, int32_t mode) {
    use<cips>(session);
    const auto* const image = use<Image>(destination);
    const Outcome outcome = call("renderAsRawToBuffer", text(" over %d, %d %d", image->first(), flags, mode));
    if (outcome == CAPS_SUCCESS && gFakeCaps.renderRaw)
        gFakeCaps.renderRaw(image->pixels.data);
    else if (outcome == CAPS_SUCCESS && image->pixels.length > 0)
        std::memset(image->pixels.data, gFakeCaps.look, static_cast<size_t>(image->pixels.length));
    return outcome;
}
