// The calls that make a JPEG through the vendor's imaging library, for each of its users.

#include "imaging/ArcJpegEncoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <regex>
#include <tuple>
#include <vector>

#include "tests/support/ShotTest.h"

using namespace android;
using kov::test::gFakeArcJpeg;
using kov::test::Lines;
using kov::test::text;
using kov::test::operator+;

namespace {

constexpr uint32_t kFormat = 0x70000002;
const Lines kRegistered({"AMCM_Create", "AMCM_RegisterEx 0x81002202 0x2000000 2 3 AJL2"});
const Lines kSaved({"MStreamOpenFromMemoryBlock null 384", "MdBitmapSaveEx 2 quality 90 0x70000002", "MStreamSeek 0 0",
                    "MStreamGetSize", "MStreamSeek 0 0", "MStreamRead 4", "deliver JPEG", "MStreamClose"});

constexpr ArcJpegUser kAll = {5, TaggedLog("ShotPanorama"), ArcJpegUser::Lines::All};
constexpr ArcJpegUser kFirstAndLast = {3, TaggedLog("ShotContinuous"), ArcJpegUser::Lines::FirstAndLast};
constexpr ArcJpegUser kNone = {3, TaggedLog("ShotAction"), ArcJpegUser::Lines::None};

class ArcJpegEncoderTest : public ::testing::Test {
protected:
    ~ArcJpegEncoderTest() override { kov::test::gFakeArcJpeg = {}; }

    /// Makes a picture, delivers it and ends.
    void encode(const ArcJpegUser& user, std::optional<int32_t> quality = 90) {
        ArcJpegEncoding encoding(user, {pixels.data(), 16, 8, kFormat}, quality);
        if (const sp<IMemory>& picture = encoding.picture(); picture.get()) {
            const auto bytes = kov::test::bytesOf(picture);
            kov::test::record("deliver " + std::string(bytes.begin(), bytes.end()));
            EXPECT_EQ(picture->offset(), 0);
        }
        encoding.end();
        EXPECT_EQ(encoding.picture(), nullptr);
    }

    std::vector<uint8_t> pixels = std::vector<uint8_t>(16 * 8 * 3 / 2);
    kov::test::Recorder recorder;
};

TEST_F(ArcJpegEncoderTest, EachUserHasItsOwnCallsAndLines) {
    encode(kAll, std::nullopt);
    Lines lines = recorder.take();
    for (std::string& line : lines)
        line = std::regex_replace(line, std::regex(R"((hStreamSave|base\(\)):-?\d+)"), "$1:N");
    const auto low = [](int plane) {
        return static_cast<unsigned>(reinterpret_cast<uintptr_t>(gFakeArcJpeg.lastBitmap.pPlane[plane]));
    };
    EXPECT_EQ(lines, (Lines{"AMCM_Create", "AMCM_RegisterEx 0x81002202 0x2000000 2 5 AJL2",
                            "E ShotPanorama: encode2ArcJpegData() - 1", "MStreamOpenFromMemoryBlock null 384",
                            "E ShotPanorama: encode2ArcJpegData() - 2 - hStreamSave:N",
                            text("E ShotPanorama: encode2ArcJpegData() - 3 - capture.pPlane[0]:%d", low(0)),
                            "MdBitmapSave 2", "E ShotPanorama: encode2ArcJpegData() - 4 - res:0", "MStreamSeek 0 0",
                            "MStreamGetSize", "MStreamSeek 0 0", "MStreamRead 4", "deliver JPEG",
                            "E ShotPanorama: encode2ArcJpegData() - 5 - heap->base():N,lStreamSize:4", "MStreamClose",
                            text("E ShotPanorama: encode2ArcJpegData() - 6 - pPlane[0]:%x,pPlane[1]:%x,pPlane[2]:%x",
                                 low(0), low(1), low(2)),
                            "E ShotPanorama: encode2ArcJpegData() - end", "AMCM_Destroy"}));
    encode(kNone);
    EXPECT_EQ(recorder.take(), kRegistered + kSaved + Lines{"AMCM_Destroy"});
    encode(kFirstAndLast);
    EXPECT_EQ(recorder.take(), kRegistered + Lines{"E ShotContinuous: encode2ArcJpegData() - 1"} + kSaved +
                                   Lines({"E ShotContinuous: encode2ArcJpegData() - end", "AMCM_Destroy"}));
}

TEST_F(ArcJpegEncoderTest, DescribesTheFrameWithVFirst) {
    encode(kNone);
    const auto& [format, width, height, pitch, plane] = gFakeArcJpeg.lastBitmap;
    EXPECT_EQ(std::tuple(format, width, height, pitch[0], pitch[1], pitch[2]), std::tuple(kFormat, 16, 8, 16, 16, 16));
    uint8_t* const pixel = pixels.data();
    EXPECT_EQ(std::tuple(plane[0], plane[1], plane[2]), std::tuple(pixel, pixel + 16 * 8 + 1, pixel + 16 * 8));
}

TEST_F(ArcJpegEncoderTest, GoesOnWithoutAManagerAndStopsWithoutAStream) {
    gFakeArcJpeg.createResult = 3;
    gFakeArcJpeg.jpeg = "";  // nothing fitted: an empty picture is delivered all the same
    encode(kNone);
    EXPECT_EQ(recorder.take(),
              (Lines{"AMCM_Create", "MStreamOpenFromMemoryBlock null 384",
                     "without manager: MdBitmapSaveEx 2 quality 90 0x70000002", "MStreamSeek 0 0", "MStreamGetSize",
                     "MStreamSeek 0 0", "MStreamRead 0", "deliver ", "MStreamClose"}));
    kov::test::gFakeArcJpeg = {};
    kov::test::fakeSystem().allowsHeap = [](size_t) { return false; };
    encode(kNone);
    EXPECT_EQ(recorder.take("deliver"), Lines{"deliver "});
    kov::test::resetFakeSystem();
    gFakeArcJpeg.streamOpens = false;
    encode(kAll, std::nullopt);
    encode(kFirstAndLast);
    EXPECT_EQ(recorder.take("E "), (Lines{"E ShotPanorama: encode2ArcJpegData() - 1",
                                          "E ShotPanorama: encode2ArcJpegData() - 2 - hStreamSave:0",
                                          "E ShotContinuous: encode2ArcJpegData() - 1"}));
}

TEST_F(ArcJpegEncoderTest, NoSizeAsksForMoreThanTheLibraryCanBeTold) {
    for (const auto& [width, height, capacity] :
         {std::tuple{26754, 26755, 2147409810}, {26755, 26755, INT32_MAX - 1}, {INT32_MAX, INT32_MAX, INT32_MAX - 1}}) {
        gFakeArcJpeg.streamOpens = false;
        const ArcJpegEncoding encoding(kNone, {pixels.data(), width, height, kFormat}, 90);
        EXPECT_EQ(recorder.take("MStreamOpen"), Lines{kov::test::text("MStreamOpenFromMemoryBlock null %d", capacity)});
    }
}

TEST_F(ArcJpegEncoderTest, QualityFollowsTheCameraParameter) {
    for (const auto& [parameter, quality] : {std::pair{70, 90}, {40, 80}, {100, 95}, {0, 95}, {-1, 95}, {71, 95}})
        EXPECT_EQ(arcJpegQuality(parameter), quality) << parameter;
}

}  // namespace
