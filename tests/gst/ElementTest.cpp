// What the element gives in each mode, and what it tells.

#include <opencv2/imgcodecs.hpp>
#include <vector>

#include "shots/Commands.h"
#include "tests/gst/Rig.h"

namespace kov::test {
namespace {

cv::Mat decoded(GstBuffer* buffer) {
    const std::string bytes = bytesOf(buffer);
    return cv::imdecode(cv::Mat(1, static_cast<int>(bytes.size()), CV_8U, const_cast<char*>(bytes.data())),
                        cv::IMREAD_COLOR);
}

TEST(ElementTest, EveryModeGivesFramesAlsoWhenItIsSwitchedToWhilePlaying) {
    const Rig rig("scene:portrait");
    const Harness video = rig.harness("vfsrc", "video/x-raw,width=320");
    ASSERT_NE(rig.state(GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
    GstClockTime last = 0;
    for (int round = 0; round < 2; ++round) {
        for (const android::KovMode& mode : android::kKovModes) {
            SCOPED_TRACE(mode.name);
            rig.set("mode", mode.name);
            EXPECT_TRUE(rig.told("kovcamera-log", "text", "sendCommand : " + std::to_string(mode.code)));
            for (int i = 0; i < 4; ++i) {
                const BufferPtr buffer = pull(video);
                ASSERT_TRUE(buffer);
                EXPECT_EQ(gst_buffer_get_size(buffer.get()), 320u * 240 * 3 / 2);
                ASSERT_TRUE(GST_BUFFER_PTS_IS_VALID(buffer.get()));
                EXPECT_TRUE(last == 0 || GST_BUFFER_PTS(buffer.get()) > last);
                last = GST_BUFFER_PTS(buffer.get());
            }
        }
    }
}

TEST(ElementTest, BuffersThatAreHeldKeepTheirPixels) {
    const Rig rig;
    const Harness video = rig.harness("vfsrc", "video/x-raw,width=320");
    rig.state(GST_STATE_PLAYING);
    std::vector<BufferPtr> held;
    std::vector<std::string> before;
    for (int i = 0; i < 40; ++i) {  // the camera's ring has six places
        held.push_back(pull(video));
        ASSERT_TRUE(held.back());
        before.push_back(bytesOf(held.back().get()));
    }
    for (size_t i = 0; i < held.size(); ++i)
        EXPECT_EQ(bytesOf(held[i].get()), before[i]) << i;
    EXPECT_NE(before.front(), before.back());
}

TEST(ElementTest, APanoramaIsGivenWhenTheStreamIsEndedInTheSweep) {
    const Rig rig;
    rig.set("mode", "panorama");
    const Harness pictures = rig.harness("imgsrc");
    const Harness video = rig.harness("vfsrc", "video/x-raw,width=320");
    rig.state(GST_STATE_PLAYING);
    for (int frames = 0; frames < 3; ++frames)
        ASSERT_TRUE(rig.told("kovcamera-notification", "name", "PANORAMA_FRAME_ADDED"));
    ASSERT_TRUE(gst_element_send_event(rig.element, gst_event_new_eos()));
    const std::vector<BufferPtr> panoramas = pullAll(pictures);
    ASSERT_EQ(panoramas.size(), 1u);
    const cv::Mat picture = decoded(panoramas.front().get());
    EXPECT_GT(picture.cols, picture.rows * 3 / 2);
    int width = 0;
    gst_structure_get_int(gst_caps_get_structure(capsOf(pictures).get(), 0), "width", &width);
    EXPECT_EQ(width, picture.cols);
}

TEST(ElementTest, ABurstGivesAPictureForEachFrameTakenUntilItIsStopped) {
    const Rig rig("scene:still-life");
    rig.set("mode", "continuous");
    rig.set("auto-capture", "0");
    const Harness pictures = rig.harness("imgsrc");  // with vfsrc not linked
    rig.state(GST_STATE_PLAYING);
    ASSERT_TRUE(rig.told("kovcamera-log", "text", "ShotContinuous created"));
    for (int burst = 0; burst < 2; ++burst) {
        g_signal_emit_by_name(rig.element, "start-capture");
        ASSERT_TRUE(rig.told("kovcamera-notification", "name", "CONTINUOUS_FRAME_TAKEN"));
        ASSERT_TRUE(rig.told("kovcamera-notification", "name", "CONTINUOUS_FRAME_TAKEN"));
        g_signal_emit_by_name(rig.element, "stop-capture");
        for (int i = 0; i < 2; ++i) {
            const BufferPtr buffer = pull(pictures);
            ASSERT_TRUE(buffer);
            EXPECT_EQ(decoded(buffer.get()).size(), cv::Size(640, 480));
            EXPECT_EQ(GST_BUFFER_OFFSET(buffer.get()), static_cast<guint64>(2 * burst + i));
        }
        ASSERT_TRUE(rig.told("kovcamera-notification", "name", "CONTINUOUS_DELIVERED"));
    }
}

TEST(ElementTest, PicturesAreTakenOneAfterTheOtherAndThePreviewGoesOn) {
    const Rig rig("scene:portrait?neutral=0");
    rig.set("auto-capture", "-1");
    rig.set("mode", "smile");
    rig.set("num-pictures", "2");
    const Harness pictures = rig.harness("imgsrc");
    const Harness video = rig.harness("vfsrc");
    rig.state(GST_STATE_PLAYING);
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(rig.told("kovcamera-notification", "name", "SMILE_DETECTED"));
        ASSERT_TRUE(rig.told("kovcamera-picture"));
    }
    const std::vector<BufferPtr> taken = pullAll(pictures);
    ASSERT_EQ(taken.size(), 2u);  // and no more
    EXPECT_EQ(decoded(taken[1].get()).size(), cv::Size(640, 480));
    EXPECT_EQ(rig.stat("pictures"), 2u);
}

TEST(ElementTest, CommandsAreAnsweredAndWhatIsRefusedIsAWarning) {
    const Rig rig;
    const Harness video = rig.harness("vfsrc", "video/x-raw,width=320");
    int status = 0;
    g_signal_emit_by_name(rig.element, "command", android::CARTOON_SHOT_SELECT_EFFECT, 1, 0, &status);
    EXPECT_EQ(status, -1);
    EXPECT_EQ(rig.complaint(GST_MESSAGE_WARNING), "a command needs an open camera; set the element to READY first");
    rig.set("mode", "panorama");
    rig.state(GST_STATE_PAUSED);
    g_signal_emit_by_name(rig.element, "start-capture");
    EXPECT_EQ(rig.complaint(GST_MESSAGE_WARNING),
              "a capture needs a running preview; set the pipeline to PLAYING first");
    rig.state(GST_STATE_PLAYING);
    ASSERT_TRUE(pull(video));
    g_signal_emit_by_name(rig.element, "command", android::PANORAMA_SHOT_START, 0, 0, &status);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(rig.told("kovcamera-notification", "name", "PANORAMA_FRAME_ADDED"));
    g_signal_emit_by_name(rig.element, "command", 1, 0, 0, &status);
    EXPECT_NE(status, 0);
    rig.set("picture-size", "641x480");
    EXPECT_NE(rig.complaint(GST_MESSAGE_WARNING).find("picture-size cannot be \"641x480\""), std::string::npos);
}

}  // namespace
}  // namespace kov::test
