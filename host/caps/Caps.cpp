// The C interface of the effects engine and its objects.

#include <caps/caps.h>

#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "host/caps/JpegReader.h"
#include "host/caps/Session.h"
#include "host/caps/Status.h"

using namespace kov::caps;

namespace {

/// A buffer of the library: the pair that the caller reads, over the bytes of `stream`.
struct Buffer {
    caps_data pair = {0, nullptr};
    size_t mostBytes = 0;
    std::vector<uint8_t> stream;

    void set(std::vector<uint8_t>& bytes) {
        stream.swap(bytes);
        pair = {static_cast<int32_t>(stream.size()), stream.empty() ? nullptr : stream.data()};
    }
};

/// The library's buffers by the pair that their owner knows. Streams and renderings keep a buffer alive that was
/// destroyed under them.
class Buffers {
public:
    caps_data* add(const std::shared_ptr<Buffer>& buffer) {
        const std::lock_guard held(mLock);
        mBuffers[&buffer->pair] = buffer;
        return &buffer->pair;
    }
    std::shared_ptr<Buffer> find(const caps_data* pair) {
        const std::lock_guard held(mLock);
        const auto found = mBuffers.find(pair);
        return found == mBuffers.end() ? nullptr : found->second;
    }
    bool remove(const caps_data* pair) {
        const std::lock_guard held(mLock);
        return mBuffers.erase(pair) == 1;
    }

private:
    std::mutex mLock;  // guards mBuffers; the buffers themselves belong to one thread at a time
    std::map<const caps_data*, std::shared_ptr<Buffer>> mBuffers;
};
Buffers& buffers() {
    static Buffers* const all = new Buffers;  // used by threads that outlive static objects
    return *all;
}

/// The whole of the record behind a caps_image.
struct Image {
    caps_image head;  // first: it is what the caller sees
    uint8_t* pixels;  // the caller's
    cv::Size size;
};
const Image& imageOf(const caps_image* image) {
    return *reinterpret_cast<const Image*>(image);
}

}  // namespace

struct caps_stream {
    caps_data bytes;                 // the caller's, as they were when the stream was made
    std::shared_ptr<Buffer> buffer;  // null over the caller's bytes, which are only read
};

struct cips {
    Session session;
};

struct caps_iterator {
    std::shared_ptr<Buffer> buffer;  // to be filled
    Rendering rendering;

    /// One step. The buffer is filled by the last.
    Status step() {
        std::vector<uint8_t> stream;
        const bool done = rendering.stepsDone() == Rendering::kSteps;
        const Status status = rendering.step(stream);
        if (!done && status == Status::Done)
            buffer->set(stream);
        return status;
    }
};

namespace {

constexpr size_t kMostBytes = std::numeric_limits<int32_t>::max();

caps_result code(Status status) {
    return static_cast<caps_result>(status);
}

/// Runs an operation; whatever is thrown within, by OpenCV or for lack of memory, becomes a status.
template <typename Operation>
caps_result run(Operation operation) {
    try {
        return code(operation());
    } catch (...) {
        return code(Status::Internal);
    }
}

template <typename Operation>
caps_result runOn(cips* session, Operation operation) {
    return session ? run([&] { return operation(session->session); }) : code(Status::BadArgument);
}

caps_result begin(cips* session, Edit edit) {
    return runOn(session, [&](Session& target) {
        target.begin(edit);
        return Status::Good;
    });
}

caps_result end(cips* session, Edit edit) {
    return runOn(session, [&](Session& target) { return target.end(edit); });
}

template <typename Object>
caps_result destroy(Object* object) {
    delete object;
    return code(object ? Status::Good : Status::BadArgument);
}

bool isPossible(int32_t width, int32_t height) {
    return width > 0 && height > 0 && width <= kMostSide && height <= kMostSide;
}

}  // namespace

int32_t caps_pixelBitSize(int32_t format) {
    return format == CAPS_FORMAT_YUV420_SEMIPLANAR ? 12 : 0;
}

caps_result caps_createImage(const caps_data* pixels, int32_t width, int32_t height, int32_t stride, int32_t format,
                             caps_image** image) {
    if (!image)
        return code(Status::BadArgument);
    *image = nullptr;
    if (!pixels || !pixels->data)
        return code(Status::BadArgument);
    if (format != CAPS_FORMAT_YUV420_SEMIPLANAR)
        return code(Status::BadFormat);
    if (!isPossible(width, height) || width % 2 || height % 2 || stride != width || pixels->length < 0 ||
        static_cast<size_t>(pixels->length) != frameBytes({width, height}))
        return code(Status::BadSize);
    return run([&] {
        *image = &(new Image{{0}, pixels->data, {width, height}})->head;
        return Status::Good;
    });
}

caps_result caps_destroyImage(caps_image* image) {
    return destroy(reinterpret_cast<Image*>(image));
}

caps_result caps_createBuffer(int32_t capacity, caps_data** buffer) {
    if (!buffer)
        return code(Status::BadArgument);
    *buffer = nullptr;
    if (capacity < 0)
        return code(Status::BadArgument);
    return run([&] {
        const auto made = std::make_shared<Buffer>();
        made->mostBytes = capacity == 0 ? kMostBytes : static_cast<size_t>(capacity);
        *buffer = buffers().add(made);
        return Status::Good;
    });
}

caps_result caps_destroyBuffer(caps_data* buffer) {
    return code(buffers().remove(buffer) ? Status::Good : Status::BadArgument);
}

caps_result ctstream_createBufferStream(caps_data* buffer, int32_t mode, caps_stream** stream) {
    if (!stream)
        return code(Status::BadArgument);
    *stream = nullptr;
    if (!buffer || mode != 0)
        return code(Status::BadArgument);
    return run([&] {
        const std::shared_ptr<Buffer> own = buffers().find(buffer);
        if (!own && (!buffer->data || buffer->length <= 0))
            return Status::BadArgument;
        *stream = new caps_stream{*buffer, own};
        return Status::Good;
    });
}

caps_result ctstream_destroy(caps_stream* stream) {
    return destroy(stream);
}

caps_result caps_createSession(caps_stream* input, int32_t mode, cips** session) {
    if (!session)
        return code(Status::BadArgument);
    *session = nullptr;
    if (!input || mode != 1)
        return code(Status::BadArgument);
    return run([&] {
        const caps_data& bytes = input->buffer ? input->buffer->pair : input->bytes;
        const auto length = static_cast<size_t>(bytes.length);
        const cv::Size size = jpegSize(bytes.data, length);
        if (size.empty())
            return Status::BadJpeg;
        *session = new cips{Session(JpegSource{bytes.data, length, size})};
        return Status::Good;
    });
}

caps_result caps_newSessionWithRaw(caps_image* source, cips** session) {
    if (!session)
        return code(Status::BadArgument);
    *session = nullptr;
    if (!source)
        return code(Status::BadArgument);
    return run([&] {
        *session = new cips{Session(FrameSource{imageOf(source).pixels, imageOf(source).size})};
        return Status::Good;
    });
}

caps_result caps_destroySession(cips* session) {
    return destroy(session);
}

caps_result caps_beginCartoon(cips* session) {
    return begin(session, Edit::Cartoon);
}

caps_result caps_setCartoon(cips* session, int32_t on) {
    return runOn(session, [&](Session& target) { return target.setCartoon(on != 0); });
}

caps_result caps_endCartoon(cips* session) {
    return end(session, Edit::Cartoon);
}

caps_result caps_applySketch(cips* session, int32_t color) {
    return runOn(session, [&](Session& target) {
        target.sketch(color != 0);
        return Status::Good;
    });
}

caps_result caps_beginStamp(cips* session) {
    return begin(session, Edit::Stamp);
}

caps_result caps_setStamp(cips* session, int32_t smoothness, int32_t threshold) {
    return runOn(session, [&](Session& target) { return target.setStamp(smoothness, threshold); });
}

caps_result caps_endStamp(cips* session) {
    return end(session, Edit::Stamp);
}

caps_result caps_beginRotate(cips* session) {
    return begin(session, Edit::Rotate);
}

caps_result caps_setRotate(cips* session, int32_t degrees) {
    return runOn(session, [&](Session& target) { return target.setRotate(degrees); });
}

caps_result caps_endRotate(cips* session) {
    return end(session, Edit::Rotate);
}

caps_result caps_setJpegQuality(cips* session, float quality) {
    return runOn(session, [&](Session& target) { return target.setQuality(quality); });
}

caps_result caps_render(cips* session, caps_stream* output, int32_t width, int32_t height, int32_t flags, int32_t mode,
                        caps_iterator** iterator) {
    if (iterator)
        *iterator = nullptr;
    if (!output || flags != 0 || mode != 1)
        return code(Status::BadArgument);
    return runOn(session, [&](const Session& source) {
        if (!output->buffer)
            return Status::ReadOnly;
        if (!isPossible(width, height))
            return Status::BadSize;
        const cv::Size size(width, height);
        std::optional<Picture> picture = source.load(size);
        if (!picture)
            return Status::BadJpeg;
        const size_t mostBytes = output->buffer->mostBytes;
        std::unique_ptr<caps_iterator> made(
            new caps_iterator{output->buffer, {std::move(*picture), source, size, mostBytes}});
        if (iterator) {
            *iterator = made.release();
            return Status::Good;
        }
        Status status = Status::Good;
        while (status == Status::Good)
            status = made->step();
        return status == Status::Done ? Status::Good : status;
    });
}

caps_result caps_doNextIteration(caps_iterator* iterator) {
    return code(iterator ? iterator->step() : Status::BadArgument);
}

caps_result caps_estimateIterationCount(caps_iterator* iterator, int32_t* total) {
    if (!iterator || !total)
        return code(Status::BadArgument);
    *total = Rendering::kSteps;
    return code(Status::Good);
}

caps_result caps_getCurIterationCount(caps_iterator* iterator, int32_t* done) {
    if (!iterator || !done)
        return code(Status::BadArgument);
    *done = iterator->rendering.stepsDone();
    return code(Status::Good);
}

caps_result caps_destroyIterator(caps_iterator* iterator) {
    return destroy(iterator);
}

caps_result caps_renderAsRawToBuffer(cips* session, caps_image* destination, int32_t flags, int32_t mode) {
    if (!destination || flags != 0 || mode != 0)
        return code(Status::BadArgument);
    return runOn(session, [&](const Session& source) {
        const Image& image = imageOf(destination);
        return image.size == source.size() ? renderFrame(source, image.pixels) : Status::BadSize;
    });
}
