// What is settled by caps, and the copy of a frame.

#include <numeric>
#include <opencv2/imgcodecs.hpp>
#include <vector>

#include "tests/camera/TemporaryFolder.h"
#include "tests/gst/Rig.h"
#include "tools/gst/FrameCopy.h"
#include "tools/gst/PreviewCaps.h"

namespace kov::test {
namespace {

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
    const struct {
        const char *caps, *format;
        int width, height, rate;
    } wishes[] = {{"ANY", "NV21", 640, 480, 30},
                  {"video/x-raw,format=I420,width=320,height=240,framerate=15/1", "I420", 320, 240, 15},
                  {"video/x-raw,width=[700,1000],framerate=[1/1,13/1]", "NV21", 720, 480, 12},
                  {"video/x-raw,format={I420,NV21},height=1080,framerate=60/1", "NV21", 1920, 1080, 60}};
    for (const auto& wish : wishes) {
        SCOPED_TRACE(wish.caps);
        gst_harness_set_sink_caps_str(video.get(), wish.caps);
        GstVideoInfo info;
        BufferPtr buffer;
        do {  // frames of before may be on their way
            buffer = pull(video);
            ASSERT_TRUE(buffer);
            ASSERT_TRUE(gst_video_info_from_caps(&info, capsOf(video).get()));
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
        GstClockTime least = 0, most = 0;
        gst_query_parse_latency(latency, &live, &least, &most);
        gst_query_unref(latency);
        EXPECT_TRUE(live);
        EXPECT_EQ(least, GST_SECOND / wish.rate);
        EXPECT_EQ(most, 5 * least);
    }
}

TEST(CapsTest, AFrameIsCopiedIntoPaddedRows) {
    constexpr size_t kBytes = 8 * 4 * 3 / 2;
    std::string bytes(kBytes, '\0');
    std::iota(bytes.begin(), bytes.end(), '\1');
    gst_init(nullptr, nullptr);
    const struct {
        GstVideoFormat format;
        cam::PixelLayout layout;
        gsize offset[4];
        gint stride[4];
    } cases[] = {{GST_VIDEO_FORMAT_NV21, cam::PixelLayout::Yuv420sp, {0, 64}, {16, 12}},
                 {GST_VIDEO_FORMAT_I420, cam::PixelLayout::Yuv420p, {0, 64, 80}, {16, 8, 8}}};
    for (auto one : cases) {
        GstVideoInfo info;  // without padding
        gst_video_info_set_format(&info, one.format, 8, 4);
        const BufferPtr padded(gst_buffer_new_allocate(nullptr, 128, nullptr));
        gst_buffer_add_video_meta_full(padded.get(), GST_VIDEO_FRAME_FLAG_NONE, one.format, 8, 4,
                                       GST_VIDEO_INFO_N_PLANES(&info), one.offset, one.stride);
        const auto* const data = reinterpret_cast<const uint8_t*>(bytes.data());
        const cam::Frame frame = {0, data, kBytes, 8, 4, one.layout, 0, 0};
        ASSERT_TRUE(gst::fits(frame, info));
        ASSERT_TRUE(gst::copyFrame(frame, info, padded.get()));
        const BufferPtr plain(gst_buffer_new_allocate(nullptr, kBytes, nullptr));
        GstVideoFrame from, to;
        ASSERT_TRUE(gst_video_frame_map(&from, &info, padded.get(), GST_MAP_READ));
        ASSERT_TRUE(gst_video_frame_map(&to, &info, plain.get(), GST_MAP_WRITE));
        gst_video_frame_copy(&to, &from);
        gst_video_frame_unmap(&to);
        gst_video_frame_unmap(&from);
        EXPECT_EQ(bytesOf(plain.get()), bytes);
    }
}

}  // namespace
}  // namespace kov::test
