// The host's effects engine, through its C interface.

#include <caps/caps.h>
#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <limits>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "host/camera/Sources.h"
#include "host/caps/Status.h"

using kov::caps::Status;

namespace {

using Bytes = std::vector<uint8_t>;
using Apply = std::function<void(cips*)>;

const cv::Size kPreview(640, 480);

constexpr caps_result code(Status status) {
    return static_cast<caps_result>(status);
}

template <typename... Results>
void expect(Status status, Results... results) {
    EXPECT_EQ(std::vector<caps_result>({results...}), std::vector(sizeof...(results), code(status)));
}

/// An object of the library: `create` takes last where it goes. To destroy one that was not made does nothing.
template <typename Object, auto create, auto destroy>
struct Owned {
    template <typename... Arguments>
    explicit Owned(const Arguments&... arguments) : result(create(arguments..., &object)) {}
    Owned(const Owned&) = delete;
    ~Owned() { destroy(object); }
    operator Object*() const { return object; }

    Object* object = nullptr;
    const caps_result result;
};
using Image = Owned<caps_image, caps_createImage, caps_destroyImage>;
using Buffer = Owned<caps_data, caps_createBuffer, caps_destroyBuffer>;
using Stream = Owned<caps_stream, ctstream_createBufferStream, ctstream_destroy>;
using JpegSession = Owned<cips, caps_createSession, caps_destroySession>;
using FrameSession = Owned<cips, caps_newSessionWithRaw, caps_destroySession>;
using Iterator = Owned<caps_iterator, caps_render, caps_destroyIterator>;

template <auto begin, auto set, auto end, typename... Values>
Apply edit(Values... values) {
    return [=](cips* session) {
        begin(session);
        set(session, values...);
        end(session);
    };
}
constexpr auto rotate = edit<caps_beginRotate, caps_setRotate, caps_endRotate, int>;
constexpr auto cartoon = edit<caps_beginCartoon, caps_setCartoon, caps_endCartoon, int>;
constexpr auto stamp = edit<caps_beginStamp, caps_setStamp, caps_endStamp, int, int>;

const Apply kNone = [](cips*) {};
const Apply kColor = [](cips* session) { caps_applySketch(session, 1); };
const Apply kGrey = [](cips* session) { caps_applySketch(session, 0); };
const std::vector<Apply> kAll = {kNone, cartoon(1), kColor, kGrey, stamp(3, 100)};

/// A semi-planar frame, V first.
struct Frame {
    explicit Frame(cv::Size size) : size(size), bytes(static_cast<size_t>(size.area()) * 3 / 2) {}
    cv::Mat luma() { return {size, CV_8U, bytes.data()}; }
    cv::Mat chroma() { return {size / 2, CV_8UC2, bytes.data() + size.area()}; }
    Image image() {
        const caps_data pixels = {static_cast<int32_t>(bytes.size()), bytes.data()};
        return Image(&pixels, size.width, size.height, size.width, 4380);
    }

    cv::Size size;
    Bytes bytes;
};

struct Input {
    explicit Input(Bytes& jpeg) : pair{static_cast<int32_t>(jpeg.size()), jpeg.data()} {}

    caps_data pair;
    Stream stream{&pair, 0};
    JpegSession session{stream, 1};
};
struct Output {
    Bytes bytes() const { return {buffer.object->data, buffer.object->data + buffer.object->length}; }

    Buffer buffer{0};
    Stream stream{buffer, 0};
};

Bytes compress(const cv::Mat& picture, int sampling = TJSAMP_420, int flags = 0) {
    const tjhandle codec = tjInitCompress();
    uint8_t* jpeg = nullptr;
    unsigned long size = 0;
    tjCompress2(codec, picture.data, picture.cols, static_cast<int>(picture.step), picture.rows, TJPF_BGR, &jpeg, &size,
                sampling, 95, flags);
    const Bytes copy(jpeg, jpeg + size);
    tjFree(jpeg);
    tjDestroy(codec);
    return copy;
}
cv::Size sizeOf(const Bytes& jpeg) {
    return cv::imdecode(jpeg, cv::IMREAD_COLOR).size();
}
Frame frameOf(Bytes jpeg) {
    Frame frame(sizeOf(jpeg));
    EXPECT_EQ(caps_renderAsRawToBuffer(Input(jpeg).session, frame.image(), 0, 0), CAPS_SUCCESS);
    return frame;
}
cv::Mat sceneOf(const char* name, cv::Size size = kPreview) {
    std::string error;
    return kov::camera::openSource(std::string("scene:") + name, &error)->frame(0, size);
}

/// As the preview is rendered.
Frame drawn(Frame from, const Apply& apply, cv::Size size) {
    Frame to(size);
    const Image source = from.image();
    const FrameSession session(source);
    apply(session);
    EXPECT_EQ(caps_renderAsRawToBuffer(session, to.image(), 0, 0), CAPS_SUCCESS);
    return to;
}
caps_result lastStep(caps_iterator* iterator) {
    caps_result result = CAPS_SUCCESS;
    while (result == CAPS_SUCCESS)
        result = caps_doNextIteration(iterator);
    return result;
}
/// As a picture is rendered.
Bytes renderJpeg(cips* session, cv::Size size, float quality = 0.95f) {
    const Output output;
    caps_setJpegQuality(session, quality);
    EXPECT_EQ(lastStep(Iterator(session, output.stream, size.width, size.height, 0, 1)), code(Status::Done));
    return output.bytes();
}

double difference(const cv::Mat& a, const cv::Mat& b) {
    return cv::norm(a, b, cv::NORM_L1) / static_cast<double>(a.total() * a.channels());
}
double share(const cv::Mat& mask) {
    return cv::mean(mask != 0)[0] / 255;
}

TEST(CapsEngine, WithoutAnEffectAFrameIsTheSourceTurned) {
    for (const cv::Size size : {cv::Size(2, 2), {6, 4}, {34, 18}, {642, 478}}) {
        Frame source(size);
        cv::randu(source.bytes, 0, 256);
        EXPECT_EQ(drawn(source, kNone, size).bytes, source.bytes);
        for (int i = 0; i < 3; ++i) {
            Frame wanted(i == 1 ? size : cv::Size(size.height, size.width));
            cv::Mat luma = wanted.luma(), chroma = wanted.chroma();
            cv::rotate(source.luma(), luma, i);  // from 0 for a quarter clockwise to 2 for three
            cv::rotate(source.chroma(), chroma, i);
            EXPECT_EQ(drawn(source, rotate(90 * i - 270), wanted.size).bytes, wanted.bytes) << size << " turned " << i;
        }
    }
}

TEST(CapsEngine, EveryLookIsItselfOnEveryScene) {
    for (const char* const scene : {"portrait", "landscape", "still-life"}) {
        SCOPED_TRACE(scene);
        Frame source = frameOf(compress(sceneOf(scene)));
        Frame flat = drawn(source, cartoon(1), kPreview), color = drawn(source, kColor, kPreview),
              grey = drawn(source, kGrey, kPreview), inked = drawn(source, stamp(3, 100), kPreview);
        // Flat within outlines: most places are like their neighbours, and the colours stay those of the source.
        EXPECT_GT(share(cv::abs(flat.luma().colRange(1, 640) - flat.luma().colRange(0, 639)) < 2), 0.6);
        for (Frame* const frame : {&flat, &color})
            EXPECT_LT(cv::norm(cv::mean(frame->chroma()), cv::mean(source.chroma()), cv::NORM_INF), 8);
        for (Frame* const frame : {&grey, &inked})
            EXPECT_EQ(share(frame->chroma().reshape(1) != 128), 0);
        for (Frame* const frame : {&color, &grey})
            EXPECT_GT(cv::mean(frame->luma())[0], cv::mean(source.luma())[0] + 15) << "drawn on white paper";
        const double ink = share(inked.luma() == 16), paper = share(inked.luma() == 248);
        EXPECT_GT(std::min(ink, paper), 0.1);
        EXPECT_GT(ink + paper, 0.93);
        EXPECT_GT(share(drawn(source, stamp(3, 180), kPreview).luma() < 128), ink + 0.05);
    }
}

TEST(CapsEngine, StepsReachEveryTwentiethAndDrawWhatIsDrawnAtOnce) {
    for (const cv::Size size : {kPreview, cv::Size(354, 258), {18, 66}}) {
        Frame source = frameOf(compress(sceneOf("landscape", size)));
        for (const Apply& apply : kAll) {
            SCOPED_TRACE(std::to_string(size.width) + " with effect " + std::to_string(&apply - kAll.data()));
            const Image image = source.image();
            const FrameSession session(image);
            apply(session);
            caps_setJpegQuality(session, 1);
            const Output atOnce, inSteps;
            EXPECT_EQ(caps_render(session, atOnce.stream, size.width, size.height, 0, 1, nullptr), CAPS_SUCCESS);
            // A JPEG of the best quality differs from what was put in by its rounding.
            EXPECT_LE(cv::norm(frameOf(atOnce.bytes()).bytes, drawn(source, apply, size).bytes, cv::NORM_INF), 4);
            const Iterator iterator(session, inSteps.stream, size.width, size.height, 0, 1);
            int32_t total = 0, done = -1;
            caps_estimateIterationCount(iterator, &total);
            for (int32_t step = 0; step < total; ++step) {
                caps_getCurIterationCount(iterator, &done);
                EXPECT_EQ(done, step);
                EXPECT_EQ(inSteps.buffer.object->length, 0);
                EXPECT_EQ(caps_doNextIteration(iterator), step + 1 < total ? CAPS_SUCCESS : code(Status::Done));
            }
            caps_getCurIterationCount(iterator, &done);
            EXPECT_TRUE(done == total && total % 20 == 0) << done << " of " << total;
            EXPECT_EQ(caps_doNextIteration(iterator), code(Status::Done));  // and the picture stays
            EXPECT_EQ(inSteps.bytes(), atOnce.bytes());
        }
    }
}

TEST(CapsEngine, APictureLooksAsItsPreviewDid) {
    Frame preview = frameOf(compress(sceneOf("portrait")));
    Bytes jpeg = compress(sceneOf("portrait", {2560, 1920}));
    for (const Apply& apply : kAll) {
        SCOPED_TRACE(&apply - kAll.data());
        const Input source(jpeg);
        apply(source.session);
        [[maybe_unused]] const auto begin = std::chrono::steady_clock::now();
        Frame picture = frameOf(renderJpeg(source.session, {2560, 1920})), expected = drawn(preview, apply, kPreview);
#if defined(NDEBUG) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
#endif
        cv::Mat luma, chroma;
        cv::resize(picture.luma(), luma, kPreview, 0, 0, cv::INTER_AREA);
        cv::resize(picture.chroma(), chroma, kPreview / 2, 0, 0, cv::INTER_AREA);
        EXPECT_LT(difference(luma, expected.luma()), 6);
        EXPECT_LT(difference(chroma, expected.chroma()), 2);
    }
}

TEST(CapsEngine, AFrameLooksTheSameAtEverySize) {
    const auto reduced = [](const cv::Mat& plane, cv::Size size) {
        cv::Mat small;
        cv::resize(plane, small, size, 0, 0, cv::INTER_AREA);
        return small;
    };
    for (const char* const scene : {"portrait", "crossing"}) {
        const cv::Mat largest = sceneOf(scene, {1920, 1440});  // one drawing for all sizes
        Frame middle = frameOf(compress(reduced(largest, kPreview)));
        // Strokes get no finer than a pixel: what is small has the same tones.
        const std::pair<cv::Size, cv::Size> sizes[] = {
            {{320, 240}, {40, 30}}, {{1280, 960}, kPreview}, {largest.size(), kPreview}};
        for (const auto& [size, both] : sizes) {
            for (const Apply& apply : kAll) {
                SCOPED_TRACE(scene + std::to_string(size.width) + " with effect " +
                             std::to_string(&apply - kAll.data()));
                Frame expected = drawn(middle, apply, kPreview);
                Frame frame = drawn(frameOf(compress(reduced(largest, size))), apply, size);
                const double luma = difference(reduced(frame.luma(), both), reduced(expected.luma(), both)),
                             chroma =
                                 difference(reduced(frame.chroma(), both / 2), reduced(expected.chroma(), both / 2));
                EXPECT_LT(luma, size.width < kPreview.width ? 11 : 5);
                EXPECT_LT(chroma, 1);
            }
        }
    }
}

TEST(CapsEngine, RendersEveryKindOfJpegAtEverySizeAndQuality) {
    const cv::Mat scene = sceneOf("still-life"), odd = scene(cv::Rect(100, 90, 333, 251));
    Frame wanted = frameOf(compress(scene(cv::Rect(100, 90, 334, 252))));
    cv::Mat reduced;
    cv::resize(wanted.luma(), reduced, {40, 30}, 0, 0, cv::INTER_AREA);
    for (const int sampling : {TJSAMP_420, TJSAMP_444, TJSAMP_422, TJSAMP_440, TJSAMP_411, TJSAMP_GRAY}) {
        SCOPED_TRACE(sampling);
        Bytes jpeg = compress(odd, sampling, sampling == TJSAMP_420 ? TJFLAG_PROGRESSIVE : 0);
        const Input source(jpeg);
        Frame frame = frameOf(renderJpeg(source.session, wanted.size, 1));
        EXPECT_LT(difference(frame.luma(), wanted.luma()), 1.5);
        EXPECT_LT(difference(frameOf(renderJpeg(source.session, {40, 30}, 1)).luma(), reduced), 3);
        if (sampling == TJSAMP_GRAY)
            wanted.chroma().setTo(cv::Scalar::all(128));
        EXPECT_LT(difference(frame.chroma(), wanted.chroma()), sampling == TJSAMP_GRAY ? 1e-3 : 3);
    }
    Bytes jpeg = compress(odd);
    for (const cv::Size size : {cv::Size(333, 251), {1, 1}, {41, 31}, {640, 480}, {17, 700}, {1300, 1}}) {
        for (const Apply& apply : kAll) {
            const Input source(jpeg);
            apply(source.session);
            rotate(90)(source.session);
            EXPECT_EQ(sizeOf(renderJpeg(source.session, size)), size);
        }
    }
    size_t before = 0;
    for (const float quality : {0.0f, 0.3f, 0.7f, 0.9f, 0.95f, 1.0f}) {
        const size_t bytes = renderJpeg(Input(jpeg).session, kPreview, quality).size();
        EXPECT_GT(bytes, before) << quality;
        before = bytes;
    }
}

TEST(CapsEngine, RefusesFramesThatCannotBe) {
    Bytes bytes(1000);
    const auto create = [&](int width, int height, int stride, int length, int format = 4380) {
        const caps_data pixels = {length, bytes.data()};
        const Image image(&pixels, width, height, stride, format);
        if (image)
            image.object->owns_pixels = 1;  // borrowed all the same
        return image.result;
    };
    const caps_data nowhere = {96, nullptr};
    EXPECT_EQ(create(8, 8, 8, 96), CAPS_SUCCESS);
    expect(Status::BadArgument, Image(&nowhere, 8, 8, 8, 4380).result, Image(nullptr, 8, 8, 8, 4380).result);
    EXPECT_EQ(create(8, 8, 8, 96, 4381), code(Status::BadFormat));
    EXPECT_EQ(caps_pixelBitSize(4381), 0);
    expect(Status::BadSize, create(0, 8, 0, 0), create(-8, -8, -8, 96), create(64, 1, 64, 96), create(1, 64, 1, 96),
           create(8, 8, 9, 96), create(8, 8, 8, 95), create(8, 8, 8, 98), create(65536, 65536, 65536, 0));
}

TEST(CapsEngine, RefusesABrokenJpegQuietly) {
    const Bytes good = compress(sceneOf("portrait"));
    Bytes noJpeg(500, 7), header(good.begin(), good.begin() + 20), half(good.begin(), good.begin() + good.size() / 2);
    Bytes damaged = good;
    std::fill_n(damaged.begin() + damaged.size() / 2, 400, 0xff);
    testing::internal::CaptureStderr();
    expect(Status::BadJpeg, Input(noJpeg).session.result, Input(header).session.result);
    for (Bytes* const bytes : {&half, &damaged}) {
        const Input source(*bytes);
        const Output output;
        const Iterator iterator(source.session, output.stream, 640, 480, 0, 1);
        Frame frame(kPreview);
        expect(Status::BadJpeg, iterator.result, caps_renderAsRawToBuffer(source.session, frame.image(), 0, 0));
        EXPECT_EQ(iterator.object, nullptr);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(CapsEngine, RefusesArgumentsThatItDoesNotKnow) {
    Bytes jpeg = compress(sceneOf("portrait", {64, 48}));
    const Input source(jpeg);
    cips* const session = source.session;
    caps_data borrowed = source.pair, empty = {0, nullptr};
    int32_t count = 0;
    const Output output;
    const Buffer small(200);
    Frame frame({64, 48});
    const Image image = frame.image();
    const auto render = [&](caps_stream* to, int width = 64, int height = 48, int flags = 0, int mode = 1) {
        return caps_render(session, to, width, height, flags, mode, nullptr);
    };
    expect(Status::BadArgument, caps_render(nullptr, output.stream, 9, 9, 0, 1, nullptr), render(nullptr),
           render(output.stream, 9, 9, 1), render(output.stream, 9, 9, 0, 2), caps_createBuffer(0, nullptr),
           Buffer(-1).result, caps_destroyBuffer(&borrowed), Stream(nullptr, 0).result, Stream(&empty, 0).result,
           Stream(&borrowed, 3).result, JpegSession(nullptr, 1).result, JpegSession(output.stream, 0).result,
           FrameSession(nullptr).result, caps_renderAsRawToBuffer(nullptr, image, 0, 0),
           caps_renderAsRawToBuffer(session, nullptr, 0, 0), caps_renderAsRawToBuffer(session, image, 0, 1),
           caps_beginCartoon(nullptr), caps_setStamp(session, -1, 100), caps_setStamp(session, 3, 256),
           caps_setRotate(session, 45), caps_setJpegQuality(session, -0.1f), caps_setJpegQuality(session, 1.1f),
           caps_setJpegQuality(session, std::numeric_limits<float>::quiet_NaN()), caps_doNextIteration(nullptr),
           caps_estimateIterationCount(nullptr, &count), caps_getCurIterationCount(nullptr, &count),
           caps_destroyImage(nullptr), caps_destroyIterator(nullptr));
    expect(Status::BadSize, render(output.stream, 0), render(output.stream, 9, -1), render(output.stream, 9, 8193),
           caps_renderAsRawToBuffer(session, Frame({48, 64}).image(), 0, 0));
    expect(Status::BufferFull, render(Stream(small, 0)));
    EXPECT_EQ(small.object->length, 0);
    expect(Status::BadJpeg, JpegSession(output.stream, 1).result);  // its buffer is empty
    expect(Status::ReadOnly, render(source.stream));
    // A stamp that was begun and not set is no stamp, and no rotation, whatever was set before.
    rotate(0)(session);
    expect(Status::OutOfOrder, caps_setCartoon(session, 1), caps_endCartoon(session));
    caps_beginStamp(session);
    expect(Status::OutOfOrder, caps_endStamp(session), caps_setRotate(session, 90));
    EXPECT_EQ(render(output.stream), CAPS_SUCCESS);  // nothing of all that counted
    EXPECT_LT(difference(frameOf(output.bytes()).luma(), frameOf(jpeg).luma()), 4);
    const Iterator orphan(Input(jpeg).session, Output().stream, 64, 48, 0, 1);
    EXPECT_EQ(lastStep(orphan), code(Status::Done));  // it outlives what it came from
}

/// While it lives, matrices of OpenCV get no memory after the first `left` ones.
struct MemoryShortage : cv::MatAllocator {
    explicit MemoryShortage(int left) : left(left) { cv::Mat::setDefaultAllocator(this); }
    ~MemoryShortage() override { cv::Mat::setDefaultAllocator(nullptr); }
    cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, size_t* step, cv::AccessFlag flags,
                           cv::UMatUsageFlags usage) const override {
        if (left-- <= 0)
            CV_Error(cv::Error::StsNoMem, "no memory");
        return cv::Mat::getStdAllocator()->allocate(dims, sizes, type, data, step, flags, usage);
    }
    bool allocate(cv::UMatData*, cv::AccessFlag, cv::UMatUsageFlags) const override { return false; }
    void deallocate(cv::UMatData* data) const override { cv::Mat::getStdAllocator()->deallocate(data); }

    mutable std::atomic<int> left;
};

TEST(CapsEngine, ShortMemoryIsAFailureAndNoCrash) {
    Bytes jpeg = compress(sceneOf("portrait", {160, 120}));
    for (const Apply& apply : kAll) {
        caps_result result = code(Status::Internal);
        for (int left = 0; result == code(Status::Internal) || left < 4; ++left) {
            const Input source(jpeg);
            apply(source.session);
            const Output output;
            const MemoryShortage shortage(left);
            const Iterator iterator(source.session, output.stream, 160, 120, 0, 1);
            result = iterator ? lastStep(iterator) : iterator.result;
            EXPECT_EQ(result, code(output.bytes().empty() ? Status::Internal : Status::Done)) << left;
        }
    }
}

}  // namespace
