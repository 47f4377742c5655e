// The host's effects engine, through its C interface.

#include <caps/caps.h>
#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <limits>
#include <opencv2/imgproc.hpp>
#include <string>
#include <utility>
#include <vector>

#include "host/camera/Sources.h"
#include "host/caps/Status.h"

using kov::caps::Status;

namespace {

using Bytes = std::vector<uint8_t>;
using Apply = std::function<void(cips*)>;

const cv::Size kPreview(640, 480);
const cv::Size kPicture(2560, 1920);

constexpr int32_t code(Status status) {
    return static_cast<int32_t>(status);
}

void stamp(cips* session, int threshold) {
    EXPECT_EQ(caps_beginStamp(session), CAPS_SUCCESS);
    EXPECT_EQ(caps_setStamp(session, 3, threshold), CAPS_SUCCESS);
    EXPECT_EQ(caps_endStamp(session), CAPS_SUCCESS);
}

void rotate(cips* session, int degrees) {
    EXPECT_EQ(caps_beginRotate(session), CAPS_SUCCESS);
    EXPECT_EQ(caps_setRotate(session, degrees), CAPS_SUCCESS);
    EXPECT_EQ(caps_endRotate(session), CAPS_SUCCESS);
}

const Apply kNone = [](cips*) {};
const Apply kCartoon = [](cips* session) {
    EXPECT_EQ(caps_beginCartoon(session), CAPS_SUCCESS);
    EXPECT_EQ(caps_setCartoon(session, 1), CAPS_SUCCESS);
    EXPECT_EQ(caps_endCartoon(session), CAPS_SUCCESS);
};
const Apply kColorSketch = [](cips* session) { EXPECT_EQ(caps_applySketch(session, 1), CAPS_SUCCESS); };
const Apply kGreySketch = [](cips* session) { EXPECT_EQ(caps_applySketch(session, 0), CAPS_SUCCESS); };
const Apply kStamp = [](cips* session) { stamp(session, 100); };
const std::array kAll = {kNone, kCartoon, kColorSketch, kGreySketch, kStamp};

/// A semi-planar frame, V first.
struct Frame {
    explicit Frame(cv::Size size) : size(size), bytes(static_cast<size_t>(size.area()) * 3 / 2) {}
    cv::Mat luma() { return {size, CV_8U, bytes.data()}; }
    cv::Mat chroma() { return {size / 2, CV_8UC2, bytes.data() + size.area()}; }
    caps_data pair() { return {static_cast<int32_t>(bytes.size()), bytes.data()}; }
    caps_image* image() {
        const caps_data pixels = pair();
        caps_image* made = nullptr;
        EXPECT_EQ(caps_createImage(&pixels, size.width, size.height, size.width, 4380, &made), CAPS_SUCCESS);
        return made;
    }

    cv::Size size;
    Bytes bytes;
};

Bytes compress(const cv::Mat& picture, int sampling = TJSAMP_420, int flags = 0) {
    const tjhandle codec = tjInitCompress();
    Bytes jpeg(tjBufSize(picture.cols, picture.rows, sampling));
    uint8_t* to = jpeg.data();
    unsigned long size = jpeg.size();
    EXPECT_EQ(tjCompress2(codec, picture.data, picture.cols, static_cast<int>(picture.step), picture.rows, TJPF_BGR,
                          &to, &size, sampling, 95, flags | TJFLAG_NOREALLOC),
              0);
    tjDestroy(codec);
    jpeg.resize(size);
    return jpeg;
}

cv::Size sizeOf(const Bytes& jpeg) {
    const tjhandle codec = tjInitDecompress();
    int width = 0, height = 0, sampling = 0, space = 0;
    EXPECT_EQ(tjDecompressHeader3(codec, jpeg.data(), jpeg.size(), &width, &height, &sampling, &space), 0);
    EXPECT_EQ(sampling, TJSAMP_420);
    tjDestroy(codec);
    return {width, height};
}

/// A session over a JPEG.
class JpegSession {
public:
    explicit JpegSession(Bytes& jpeg) {
        caps_data pair = {static_cast<int32_t>(jpeg.size()), jpeg.data()};
        EXPECT_EQ(ctstream_createBufferStream(&pair, 0, &mStream), CAPS_SUCCESS);
        status = caps_createSession(mStream, 1, &session);
    }
    ~JpegSession() {
        if (session)
            caps_destroySession(session);
        ctstream_destroy(mStream);
    }
    JpegSession(const JpegSession&) = delete;
    JpegSession& operator=(const JpegSession&) = delete;

    cips* session = nullptr;
    caps_result status;

private:
    caps_stream* mStream = nullptr;
};

/// A buffer of the library with a stream that writes it.
class Output {
public:
    explicit Output(int32_t capacity = 0) {
        EXPECT_EQ(caps_createBuffer(capacity, &buffer), CAPS_SUCCESS);
        EXPECT_EQ(ctstream_createBufferStream(buffer, 0, &stream), CAPS_SUCCESS);
    }
    ~Output() {
        ctstream_destroy(stream);
        caps_destroyBuffer(buffer);
    }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    Bytes bytes() const { return {buffer->data, buffer->data + buffer->length}; }

    caps_data* buffer = nullptr;
    caps_stream* stream = nullptr;
};

Frame frameOf(Bytes jpeg) {
    Frame frame(sizeOf(jpeg));
    const JpegSession source(jpeg);
    caps_image* const image = frame.image();
    EXPECT_EQ(caps_renderAsRawToBuffer(source.session, image, 0, 0), CAPS_SUCCESS);
    caps_destroyImage(image);
    return frame;
}

cv::Mat sceneOf(const char* name, cv::Size size) {
    std::string error;
    return kov::camera::openSource(std::string("scene:") + name, &error)->frame(0, size);
}

/// As the preview is rendered. `to` may be `from`.
caps_result render(Frame& from, const Apply& apply, Frame& to) {
    caps_image* const source = from.image();
    caps_image* const destination = to.image();
    cips* session = nullptr;
    EXPECT_EQ(caps_newSessionWithRaw(source, &session), CAPS_SUCCESS);
    apply(session);
    const caps_result result = caps_renderAsRawToBuffer(session, destination, 0, 0);
    caps_destroySession(session);
    caps_destroyImage(source);
    caps_destroyImage(destination);
    return result;
}

Frame drawn(Frame from, const Apply& apply) {
    Frame to(from.size);
    EXPECT_EQ(render(from, apply, to), CAPS_SUCCESS);
    return to;
}

/// As a picture is rendered, in steps.
Bytes renderJpeg(cips* session, cv::Size size, float quality = 0.95f) {
    const Output output;
    EXPECT_EQ(caps_setJpegQuality(session, quality), CAPS_SUCCESS);
    caps_iterator* iterator = nullptr;
    EXPECT_EQ(caps_render(session, output.stream, size.width, size.height, 0, 1, &iterator), CAPS_SUCCESS);
    caps_result result = CAPS_SUCCESS;
    while (result == CAPS_SUCCESS)
        result = caps_doNextIteration(iterator);
    EXPECT_EQ(result, code(Status::Done));
    caps_destroyIterator(iterator);
    return output.bytes();
}

double difference(const cv::Mat& a, const cv::Mat& b) {
    return cv::norm(a, b, cv::NORM_L1) / static_cast<double>(a.total() * a.channels());
}

double share(const cv::Mat& mask) {
    return static_cast<double>(cv::countNonZero(mask)) / static_cast<double>(mask.total());
}

template <typename... Results>
void expect(Status status, Results... results) {
    int place = 0;
    for (const caps_result result : {results...})
        EXPECT_EQ(result, code(status)) << "result " << place++;
}

TEST(CapsEngine, WithoutAnEffectAFrameIsTheSourceTurned) {
    for (const cv::Size size : {cv::Size(2, 2), {6, 4}, {34, 18}, {642, 478}, kPreview}) {
        SCOPED_TRACE(size.width);
        Frame source(size);
        cv::randu(source.bytes, 0, 256);
        EXPECT_EQ(drawn(source, kNone).bytes, source.bytes);
        constexpr cv::RotateFlags kTurns[] = {cv::ROTATE_90_CLOCKWISE, cv::ROTATE_180, cv::ROTATE_90_COUNTERCLOCKWISE};
        for (int i = 1; i <= 3; ++i) {
            Frame turned(i % 2 ? cv::Size(size.height, size.width) : size), wanted(turned.size);
            EXPECT_EQ(render(
                          source, [&](cips* session) { rotate(session, 90 * i - 360); }, turned),
                      CAPS_SUCCESS);
            cv::Mat luma = wanted.luma(), chroma = wanted.chroma();
            cv::rotate(source.luma(), luma, kTurns[i - 1]);
            cv::rotate(source.chroma(), chroma, kTurns[i - 1]);
            EXPECT_EQ(turned.bytes, wanted.bytes);
        }
    }
}

TEST(CapsEngine, EveryLookIsItselfOnEveryScene) {
    for (const char* const scene : {"portrait", "landscape", "still-life"}) {
        SCOPED_TRACE(scene);
        Frame source = frameOf(compress(sceneOf(scene, kPreview)));
        std::vector<Frame> looks;
        for (const Apply& apply : kAll)
            looks.push_back(drawn(source, apply));
        for (size_t i = 0; i < looks.size(); ++i)
            for (size_t j = 0; j < i; ++j)
                EXPECT_GT(
                    difference(looks[i].luma(), looks[j].luma()) + difference(looks[i].chroma(), looks[j].chroma()), 8)
                    << i << " is like " << j;
        Frame &cartoon = looks[1], &color = looks[2], &grey = looks[3], &inked = looks[4];
        // Flat within outlines: most places are like their neighbours, and the colours stay those of the source.
        const auto flat = [](Frame& frame) {
            return share(cv::abs(frame.luma().colRange(1, 640) - frame.luma().colRange(0, 639)) < 2);
        };
        EXPECT_GT(flat(cartoon), 0.6);
        for (Frame* const frame : {&cartoon, &color})
            for (int channel = 0; channel < 2; ++channel)
                EXPECT_NEAR(cv::mean(frame->chroma())[channel], cv::mean(source.chroma())[channel], 8);
        for (Frame* const frame : {&grey, &inked})
            EXPECT_EQ(share(frame->chroma().reshape(1) != 128), 0);
        for (Frame* const frame : {&color, &grey})
            EXPECT_GT(cv::mean(frame->luma())[0], cv::mean(source.luma())[0] + 15) << "drawn on white paper";
        const double ink = share(inked.luma() == 16), paper = share(inked.luma() == 248);
        EXPECT_GT(ink, 0.1);
        EXPECT_GT(paper, 0.1);
        EXPECT_GT(ink + paper, 0.93);
        EXPECT_GT(share(drawn(source, [](cips* session) { stamp(session, 180); }).luma() < 128), ink + 0.05);
    }
}

TEST(CapsEngine, StepsDrawWhatIsDrawnAtOnce) {
    for (const cv::Size size : {kPreview, cv::Size(354, 258), {18, 66}}) {
        Frame source = frameOf(compress(sceneOf("landscape", size)));
        for (size_t i = 0; i < kAll.size(); ++i) {
            SCOPED_TRACE(std::to_string(size.width) + " with effect " + std::to_string(i));
            caps_image* const image = source.image();
            cips* session = nullptr;
            caps_newSessionWithRaw(image, &session);
            kAll[i](session);
            Frame inSteps = frameOf(renderJpeg(session, size, 1));
            const Output output;
            EXPECT_EQ(caps_render(session, output.stream, size.width, size.height, 0, 1, nullptr), CAPS_SUCCESS);
            caps_destroySession(session);
            caps_destroyImage(image);
            EXPECT_EQ(frameOf(output.bytes()).bytes, inSteps.bytes);
            // A JPEG of the best quality differs from what was put in by its rounding.
            Frame atOnce = drawn(source, kAll[i]);
            EXPECT_LE(cv::norm(inSteps.luma(), atOnce.luma(), cv::NORM_INF), 4);
            EXPECT_LE(cv::norm(inSteps.chroma(), atOnce.chroma(), cv::NORM_INF), 4);
        }
    }
}

TEST(CapsEngine, StepsReachEveryTwentieth) {
    Bytes jpeg = compress(sceneOf("portrait", kPreview));
    const JpegSession source(jpeg);
    kStamp(source.session);
    const Output output;
    caps_iterator* iterator = nullptr;
    ASSERT_EQ(caps_render(source.session, output.stream, 640, 480, 0, 1, &iterator), CAPS_SUCCESS);
    int32_t total = 0, done = -1;
    EXPECT_EQ(caps_estimateIterationCount(iterator, &total), CAPS_SUCCESS);
    EXPECT_EQ(caps_getCurIterationCount(iterator, &done), CAPS_SUCCESS);
    EXPECT_EQ(done, 0);
    ASSERT_EQ(total % 20, 0);
    for (int32_t step = 1; step <= total; ++step) {
        EXPECT_EQ(output.buffer->length, 0);
        EXPECT_EQ(caps_doNextIteration(iterator), step < total ? CAPS_SUCCESS : code(Status::Done));
        caps_getCurIterationCount(iterator, &done);
        EXPECT_EQ(done, step);
    }
    const Bytes complete = output.bytes();
    EXPECT_EQ(sizeOf(complete), kPreview);
    EXPECT_EQ(caps_doNextIteration(iterator), code(Status::Done));
    EXPECT_EQ(output.bytes(), complete);
    caps_destroyIterator(iterator);
}

TEST(CapsEngine, APictureLooksAsItsPreviewDid) {
    Frame preview = frameOf(compress(sceneOf("portrait", kPreview)));
    Bytes jpeg = compress(sceneOf("portrait", kPicture));
    for (size_t i = 0; i < kAll.size(); ++i) {
        SCOPED_TRACE(i);
        const JpegSession source(jpeg);
        kAll[i](source.session);
        const auto begin = std::chrono::steady_clock::now();
        Frame picture = frameOf(renderJpeg(source.session, kPicture));
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        RecordProperty("milliseconds" + std::to_string(i), static_cast<int>(took.count() * 1000));
#if defined(NDEBUG) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        EXPECT_LT(took.count(), 3);
#endif
        Frame expected = drawn(preview, kAll[i]);
        cv::Mat luma, chroma;
        cv::resize(picture.luma(), luma, kPreview, 0, 0, cv::INTER_AREA);
        cv::resize(picture.chroma(), chroma, kPreview / 2, 0, 0, cv::INTER_AREA);
        EXPECT_LT(difference(luma, expected.luma()), 6);
        EXPECT_LT(difference(chroma, expected.chroma()), 2);
    }
}

TEST(CapsEngine, RendersEveryKindOfJpegAtEverySize) {
    const cv::Mat scene = sceneOf("still-life", kPreview);
    const cv::Mat odd = scene(cv::Rect(100, 90, 333, 251));
    Frame wanted = frameOf(compress(scene(cv::Rect(100, 90, 334, 252))));
    constexpr int kSamplings[] = {TJSAMP_420, TJSAMP_444, TJSAMP_422, TJSAMP_440, TJSAMP_411, TJSAMP_GRAY};
    for (const int sampling : kSamplings) {
        SCOPED_TRACE(sampling);
        Bytes jpeg = compress(odd, sampling, sampling == TJSAMP_420 ? TJFLAG_PROGRESSIVE : 0);
        const JpegSession source(jpeg);
        Frame frame = frameOf(renderJpeg(source.session, wanted.size, 1));
        EXPECT_LT(difference(frame.luma(), wanted.luma()), 1.5);
        if (sampling != TJSAMP_GRAY)
            EXPECT_LT(difference(frame.chroma(), wanted.chroma()), 3);
        else
            EXPECT_LT(share(cv::abs(frame.chroma().reshape(1) - 128) > 1), 1e-6);
        Frame small = frameOf(renderJpeg(source.session, {40, 30}, 1));
        cv::Mat reduced;
        cv::resize(wanted.luma(), reduced, {40, 30}, 0, 0, cv::INTER_AREA);
        EXPECT_LT(difference(small.luma(), reduced), 3);
    }
    Bytes jpeg = compress(odd);
    for (const cv::Size size : {cv::Size(333, 251), {1, 1}, {41, 31}, {640, 480}, {17, 700}, {1300, 1}}) {
        for (size_t i = 0; i < kAll.size(); ++i) {
            const JpegSession source(jpeg);
            kAll[i](source.session);
            rotate(source.session, i % 2 ? 90 : 0);
            EXPECT_EQ(sizeOf(renderJpeg(source.session, size)), size) << i;
        }
    }
}

TEST(CapsEngine, BetterQualityTakesMoreBytes) {
    Bytes jpeg = compress(sceneOf("landscape", kPreview));
    const JpegSession source(jpeg);
    size_t before = 0;
    for (const float quality : {0.0f, 0.3f, 0.7f, 0.9f, 0.95f, 1.0f}) {
        const size_t bytes = renderJpeg(source.session, kPreview, quality).size();
        EXPECT_GT(bytes, before) << quality;
        before = bytes;
    }
}

TEST(CapsEngine, RefusesFramesThatCannotBe) {
    Bytes bytes(1000);
    const auto create = [&](int width, int height, int stride, int length, int format = 4380) {
        const caps_data pixels = {length, bytes.data()};
        caps_image* image = nullptr;
        const caps_result result = caps_createImage(&pixels, width, height, stride, format, &image);
        if (!image)
            return result;
        image->owns_pixels = 1;  // borrowed all the same
        return caps_destroyImage(image);
    };
    expect(Status::Good, create(8, 8, 8, 96));
    const caps_data nowhere = {96, nullptr};
    caps_image* image = nullptr;
    expect(Status::BadArgument, caps_createImage(&nowhere, 8, 8, 8, 4380, &image),
           caps_createImage(nullptr, 8, 8, 8, 4380, &image));
    expect(Status::BadFormat, create(8, 8, 8, 96, 4381));
    expect(Status::BadSize, create(0, 8, 0, 0), create(-8, -8, -8, 96), create(64, 1, 64, 96), create(1, 64, 1, 96),
           create(8, 8, 9, 96), create(8, 8, 8, 95), create(8, 8, 8, 98), create(65536, 65536, 65536, 0));
    EXPECT_EQ(caps_pixelBitSize(4381), 0);
    Frame source(kPreview);
    const Apply turn = [](cips* session) { rotate(session, 90); };
    EXPECT_EQ(render(source, turn, source), code(Status::BadSize));
}

TEST(CapsEngine, RefusesABrokenJpegQuietly) {
    const Bytes good = compress(sceneOf("portrait", {320, 240}));
    Bytes noJpeg(500, 7), header(good.begin(), good.begin() + 20), half(good.begin(), good.begin() + good.size() / 2);
    Bytes damaged = good;
    std::fill(damaged.begin() + damaged.size() / 2, damaged.begin() + damaged.size() / 2 + 400, 0xff);
    testing::internal::CaptureStderr();
    for (Bytes* const bytes : {&noJpeg, &header})
        EXPECT_EQ(JpegSession(*bytes).status, code(Status::BadJpeg));
    for (Bytes* const bytes : {&half, &damaged}) {
        const JpegSession source(*bytes);
        ASSERT_EQ(source.status, CAPS_SUCCESS);
        const Output output;
        caps_iterator* iterator = nullptr;
        EXPECT_EQ(caps_render(source.session, output.stream, 320, 240, 0, 1, &iterator), code(Status::BadJpeg));
        EXPECT_EQ(iterator, nullptr);
        EXPECT_EQ(output.buffer->length, 0);
        Frame frame({320, 240});
        caps_image* const image = frame.image();
        EXPECT_EQ(caps_renderAsRawToBuffer(source.session, image, 0, 0), code(Status::BadJpeg));
        caps_destroyImage(image);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(CapsEngine, RefusesArgumentsThatItDoesNotKnow) {
    Bytes jpeg = compress(sceneOf("portrait", {64, 48}));
    caps_data borrowed = {static_cast<int32_t>(jpeg.size()), jpeg.data()}, empty = {0, nullptr};
    const JpegSession source(jpeg);
    cips* const session = source.session;
    cips* none = nullptr;
    caps_data* buffer = nullptr;
    caps_stream* stream = nullptr;
    int32_t count = 0;
    const Output output, tooSmall(200);
    Frame frame({64, 48});
    caps_image* const image = frame.image();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const auto render = [&](caps_stream* to, int width = 64, int height = 48, int flags = 0, int mode = 1) {
        return caps_render(session, to, width, height, flags, mode, nullptr);
    };
    expect(Status::BadArgument, caps_render(nullptr, output.stream, 64, 48, 0, 1, nullptr), render(nullptr),
           render(output.stream, 9, 9, 1), render(output.stream, 9, 9, 0, 2),
           caps_createImage(&borrowed, 8, 8, 8, 4380, nullptr), caps_createBuffer(0, nullptr),
           caps_createBuffer(-1, &buffer), caps_destroyBuffer(&borrowed),
           ctstream_createBufferStream(nullptr, 0, &stream), ctstream_createBufferStream(&empty, 0, &stream),
           ctstream_createBufferStream(&borrowed, 3, &stream), ctstream_createBufferStream(&borrowed, 0, nullptr),
           caps_createSession(nullptr, 1, &none), caps_createSession(output.stream, 0, &none),
           caps_createSession(output.stream, 1, nullptr), caps_newSessionWithRaw(nullptr, &none),
           caps_newSessionWithRaw(image, nullptr), caps_renderAsRawToBuffer(nullptr, image, 0, 0),
           caps_renderAsRawToBuffer(session, nullptr, 0, 0), caps_renderAsRawToBuffer(session, image, 0, 1),
           caps_beginCartoon(nullptr), caps_applySketch(nullptr, 1), caps_setStamp(session, -1, 100),
           caps_setStamp(session, 3, 256), caps_setRotate(session, 45), caps_setJpegQuality(session, -0.1f),
           caps_setJpegQuality(session, 1.1f), caps_setJpegQuality(session, nan), caps_doNextIteration(nullptr),
           caps_estimateIterationCount(nullptr, &count), caps_getCurIterationCount(nullptr, &count),
           caps_destroyImage(nullptr), caps_destroySession(nullptr), ctstream_destroy(nullptr),
           caps_destroyIterator(nullptr));
    expect(Status::BadSize, render(output.stream, 0), render(output.stream, 9, -1), render(output.stream, 9, 8193));
    expect(Status::BufferFull, render(tooSmall.stream));
    expect(Status::BadJpeg, caps_createSession(output.stream, 1, &none));  // its buffer is empty
    ASSERT_EQ(ctstream_createBufferStream(&borrowed, 0, &stream), CAPS_SUCCESS);
    expect(Status::ReadOnly, render(stream));
    // A stamp that was begun and not set is no stamp, and no rotation.
    expect(Status::OutOfOrder, caps_setCartoon(session, 1), caps_endCartoon(session));
    EXPECT_EQ(caps_beginStamp(session), CAPS_SUCCESS);
    expect(Status::OutOfOrder, caps_endStamp(session), caps_setRotate(session, 90));
    EXPECT_EQ(tooSmall.buffer->length, 0);
    EXPECT_EQ(render(output.stream), CAPS_SUCCESS);  // nothing of all that counted
    EXPECT_LT(difference(frameOf(output.bytes()).luma(), frameOf(jpeg).luma()), 4);
    ctstream_destroy(stream);
    caps_destroyImage(image);
}

TEST(CapsEngine, AnIteratorOutlivesWhatItCameFrom) {
    Bytes jpeg = compress(sceneOf("portrait", kPreview));
    caps_iterator* iterator = nullptr;
    {
        const JpegSession source(jpeg);
        const Output output;
        ASSERT_EQ(caps_render(source.session, output.stream, 640, 480, 0, 1, &iterator), CAPS_SUCCESS);
        EXPECT_EQ(caps_doNextIteration(iterator), CAPS_SUCCESS);
        EXPECT_EQ(caps_destroyBuffer(output.buffer), CAPS_SUCCESS);
    }
    caps_result result = CAPS_SUCCESS;
    while (result == CAPS_SUCCESS)
        result = caps_doNextIteration(iterator);
    EXPECT_EQ(result, code(Status::Done));
    EXPECT_EQ(caps_destroyIterator(iterator), CAPS_SUCCESS);
}

/// While it lives, matrices of OpenCV get no memory after the first `left` ones.
class MemoryShortage : public cv::MatAllocator {
public:
    explicit MemoryShortage(int left) : mLeft(left) { cv::Mat::setDefaultAllocator(this); }
    ~MemoryShortage() override { cv::Mat::setDefaultAllocator(nullptr); }
    MemoryShortage(const MemoryShortage&) = delete;
    MemoryShortage& operator=(const MemoryShortage&) = delete;

    cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, size_t* step, cv::AccessFlag flags,
                           cv::UMatUsageFlags usage) const override {
        if (mLeft-- <= 0)
            CV_Error(cv::Error::StsNoMem, "no memory");
        return cv::Mat::getStdAllocator()->allocate(dims, sizes, type, data, step, flags, usage);
    }
    bool allocate(cv::UMatData*, cv::AccessFlag, cv::UMatUsageFlags) const override { return false; }
    void deallocate(cv::UMatData* data) const override { cv::Mat::getStdAllocator()->deallocate(data); }

private:
    mutable std::atomic<int> mLeft;
};

TEST(CapsEngine, ShortMemoryIsAFailureAndNoCrash) {
    Frame frame = frameOf(compress(sceneOf("portrait", {160, 120})));
    Bytes jpeg = compress(sceneOf("portrait", {160, 120}));
    for (const Apply& apply : kAll) {
        int failures = 0;
        caps_result result = CAPS_SUCCESS;
        for (int left = 0; left == 0 || result != CAPS_SUCCESS; ++left) {
            const JpegSession source(jpeg);
            apply(source.session);
            const Output output;
            const MemoryShortage shortage(left);
            result = caps_render(source.session, output.stream, 160, 120, 0, 1, nullptr);
            EXPECT_EQ(output.buffer->length > 0, result == CAPS_SUCCESS);
            if (result == CAPS_SUCCESS)
                break;
            EXPECT_EQ(result, code(Status::Internal));
            Frame to(frame.size);
            const caps_result drawn = render(frame, apply, to);
            EXPECT_TRUE(drawn == code(Status::Internal) || drawn == CAPS_SUCCESS) << drawn;
            ++failures;
        }
        EXPECT_GE(failures, 4);
    }
}

}  // namespace
