// What is settled by caps, and the copy of a frame.

#include <opencv2/imgcodecs.hpp>
#include <vector>

#include "tests/camera/TemporaryFolder.h"
#include "tests/gst/Rig.h"
#include "tools/gst/FrameCopy.h"
#include "tools/gst/PreviewCaps.h"

namespace kov::test {
namespace {

struct Wish {
    const char* caps;
    const char* format;
    int width;
    int height;
    int rate;
};

/// The middle pixel's luma, Cb and Cr.
std::vector<int> colorOf(GstBuffer* buffer, const GstVideoInfo& info) {
    GstVideoFrame frame;
    EXPECT_TRUE(gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ));
    std::vector<int> color;
    for (guint c = 0; c < 3; ++c) {
        const auto* const data = static_cast<const uint8_t*>(GST_VIDEO_FRAME_COMP_DATA(&frame, c));
        color.push_back(data[GST_VIDEO_FRAME_COMP_HEIGHT(&frame, c) / 2 * GST_VIDEO_FRAME_COMP_STRIDE(&frame, c) +
                             GST_VIDEO_FRAME_COMP_WIDTH(&frame, c) / 2 * GST_VIDEO_FRAME_COMP_PSTRIDE(&frame, c)]);
    }
    gst_video_frame_unmap(&frame);
    return color;
}

TEST(CapsTest, SizeFormatAndRateAreThoseThatAreAskedForAlsoWhilePlaying) {
    const TemporaryFolder folder;
    cv::imwrite(folder / "red.png", cv::Mat(480, 640, CV_8UC3, cv::Scalar(40, 90, 200)));
    const Rig rig((folder / "red.png").c_str());
    const Harness video = rig.harness("vfsrc");
    ASSERT_NE(rig.state(GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
    const Wish wishes[] = {{"ANY", "NV21", 640, 480, 30},
                           {"video/x-raw,format=I420,width=320,height=240,framerate=15/1", "I420", 320, 240, 15},
                           {"video/x-raw,width=[700,1000],framerate=[1/1,13/1]", "NV21", 720, 480, 12},
                           {"video/x-raw,format={I420,NV21},height=1080,framerate=60/1", "NV21", 1920, 1080, 60}};
    for (const Wish& wish : wishes) {
        SCOPED_TRACE(wish.caps);
        gst_harness_set_sink_caps_str(video.get(), wish.caps);
        GstVideoInfo info;
        BufferPtr buffer;
        do {  // frames of before may be on their way
            buffer = pull(video);
            ASSERT_TRUE(buffer);
            GstCaps* const caps = gst_pad_get_current_caps(video->sinkpad);
            ASSERT_TRUE(gst_video_info_from_caps(&info, caps));
            gst_caps_unref(caps);
        } while (info.width != wish.width || gst_buffer_get_size(buffer.get()) != info.size);
        EXPECT_STREQ(gst_video_format_to_string(GST_VIDEO_INFO_FORMAT(&info)), wish.format);
        EXPECT_EQ(info.height, wish.height);
        EXPECT_EQ(info.fps_n, wish.rate);
        EXPECT_EQ(info.colorimetry.range, GST_VIDEO_COLOR_RANGE_0_255);
        EXPECT_EQ(GST_BUFFER_DURATION(buffer.get()), GST_SECOND / wish.rate);
        const std::vector<int> color = colorOf(buffer.get(), info);
        EXPECT_NEAR(color[0], 117, 2);
        EXPECT_NEAR(color[1], 84, 2);
        EXPECT_NEAR(color[2], 187, 2);
        GstQuery* const latency = gst_query_new_latency();
        ASSERT_TRUE(gst_pad_peer_query(video->sinkpad, latency));
        gboolean live = FALSE;
        GstClockTime least = 0;
        GstClockTime most = 0;
        gst_query_parse_latency(latency, &live, &least, &most);
        gst_query_unref(latency);
        EXPECT_TRUE(live);
        EXPECT_EQ(least, GST_SECOND / wish.rate);
        EXPECT_EQ(most, 5 * least);
    }
}

TEST(CapsTest, WhatTheCameraHasNotIsAnErrorThatTellsWhatItHas) {
    const Rig rig;
    const Harness video = rig.harness("vfsrc", "video/x-raw,width=641");
    rig.state(GST_STATE_PLAYING);
    const std::string error = rig.complaint(GST_MESSAGE_ERROR);
    EXPECT_NE(error.find("takes no size, format and rate"), std::string::npos) << error;
    EXPECT_NE(error.find("width=(int)1280"), std::string::npos) << error;
}

TEST(CapsTest, AFrameIsCopiedIntoPaddedRows) {
    constexpr int kWidth = 6;
    constexpr int kHeight = 4;
    constexpr size_t kBytes = kWidth * kHeight * 3 / 2;
    uint8_t bytes[kBytes];
    for (size_t i = 0; i < kBytes; ++i)
        bytes[i] = static_cast<uint8_t>(i + 1);
    gst_init(nullptr, nullptr);
    const struct {
        GstVideoFormat format;
        cam::PixelLayout layout;
        gint stride[4];
        std::vector<size_t> rows;  // where each row of the frame is to begin
    } cases[] = {{GST_VIDEO_FORMAT_NV21, cam::PixelLayout::Yuv420sp, {16, 8}, {0, 16, 32, 48, 64, 72}},
                 {GST_VIDEO_FORMAT_I420, cam::PixelLayout::Yuv420p, {8, 4, 4}, {0, 8, 16, 24, 32, 36, 40, 44}}};
    for (auto one : cases) {
        GstVideoInfo info;
        gst_video_info_set_format(&info, one.format, kWidth, kHeight);
        const auto chroma = static_cast<gsize>(one.stride[0] * kHeight);
        gsize offset[4] = {0, chroma, chroma + static_cast<gsize>(one.stride[1] * kHeight / 2)};
        const BufferPtr buffer(gst_buffer_new_allocate(nullptr, 128, nullptr));
        gst_buffer_memset(buffer.get(), 0, 0, 128);
        gst_buffer_add_video_meta_full(buffer.get(), GST_VIDEO_FRAME_FLAG_NONE, one.format, kWidth, kHeight,
                                       GST_VIDEO_INFO_N_PLANES(&info), offset, one.stride);
        const cam::Frame frame = {0, bytes, kBytes, kWidth, kHeight, one.layout, 0, 0};
        ASSERT_TRUE(gst::fits(frame, info));
        ASSERT_TRUE(gst::copyFrame(frame, info, buffer.get()));
        std::string wanted(128, '\0');
        size_t at = 0;
        for (size_t row = 0; row < one.rows.size(); ++row) {
            const size_t length = row < kHeight || one.format == GST_VIDEO_FORMAT_NV21 ? kWidth : kWidth / 2;
            wanted.replace(one.rows[row], length, reinterpret_cast<const char*>(bytes) + at, length);
            at += length;
        }
        EXPECT_EQ(bytesOf(buffer.get()), wanted);
    }
}

}  // namespace
}  // namespace kov::test
