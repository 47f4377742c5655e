// The element's life: states in any order, ends, errors, a slow neighbour, and what is left behind.

#include <malloc.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <random>
#include <thread>

#include "tests/camera/TemporaryFolder.h"
#include "tests/gst/Rig.h"

namespace kov::test {
namespace {

namespace fs = std::filesystem;

TEST(LifeTest, AfterSoManyFramesTheStreamEnds) {
    const Rig rig;
    rig.set("num-buffers", "7");
    for (int round = 0; round < 2; ++round) {
        const Harness video = rig.harness("vfsrc", "video/x-raw,width=320");
        rig.state(GST_STATE_PLAYING);
        EXPECT_EQ(pullAll(video).size(), 7u);
        rig.state(GST_STATE_READY);
    }
}

TEST(LifeTest, ASlowNeighbourCostsOldFramesAndIsTold) {
    const Rig rig("scene:still-life");
    const Harness video = rig.harness("vfsrc", "video/x-raw,width=320");
    std::atomic<bool> slow{true};
    gst_pad_add_probe(
        video->sinkpad, GST_PAD_PROBE_TYPE_BUFFER,
        [](GstPad*, GstPadProbeInfo*, gpointer slowly) {
            while (*static_cast<std::atomic<bool>*>(slowly))
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            return GST_PAD_PROBE_OK;
        },
        &slow, nullptr);
    rig.state(GST_STATE_PLAYING);
    while (rig.stat("frames-dropped") < 20)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    slow = false;
    const BufferPtr first = pull(video);
    const BufferPtr second = pull(video);
    ASSERT_TRUE(first && second);
    EXPECT_GE(GST_BUFFER_OFFSET(second.get()), GST_BUFFER_OFFSET(first.get()) + 20);
    EXPECT_TRUE(GST_BUFFER_FLAG_IS_SET(second.get(), GST_BUFFER_FLAG_DISCONT));
}

TEST(LifeTest, WhatCannotPlayIsAnErrorWithTheReason) {
    const struct {
        const char *property, *value, *caps, *error;
        bool opens;
    } cases[] = {{"source", "/no/such/file", "ANY",
                  "there is no file /no/such/file; give a picture, a video, a folder, ", false},
                 {"picture-size", "1x1", "ANY", "picture-size cannot be \"1x1\"; possible are ", false},
                 {"mode", "single", nullptr, "nothing is linked; link vfsrc, imgsrc or both", true},
                 {"mode", "single", "video/x-raw,width=641", "takes no size, format and rate", true},
                 {"mode", "single", "video/x-raw,width=641", "width=(int)1280", true}};  // what it has
    for (const auto& one : cases) {
        const Rig rig;
        rig.set(one.property, one.value);
        const Harness video = one.caps ? rig.harness("vfsrc", one.caps) : nullptr;
        EXPECT_EQ(rig.state(GST_STATE_READY), one.opens ? GST_STATE_CHANGE_SUCCESS : GST_STATE_CHANGE_FAILURE);
        rig.state(GST_STATE_PLAYING);
        const std::string error = rig.complaint(GST_MESSAGE_ERROR);
        EXPECT_NE(error.find(one.error), std::string::npos) << error;
    }
}

TEST(LifeTest, ASecondElementFailsInReadyUntilTheFirstIsClosed) {
    const Rig first;
    ASSERT_EQ(first.state(GST_STATE_READY), GST_STATE_CHANGE_SUCCESS);
    const Rig second;
    EXPECT_EQ(second.state(GST_STATE_READY), GST_STATE_CHANGE_FAILURE);
    EXPECT_EQ(second.complaint(GST_MESSAGE_ERROR),
              "a session is open in this process, and a process has one camera; close that session first");
    first.state(GST_STATE_NULL);
    EXPECT_EQ(second.state(GST_STATE_READY), GST_STATE_CHANGE_SUCCESS);
}

TEST(LifeTest, ASourceThatBreaksWhilePlayingIsAnErrorAndTheEnd) {
    const TemporaryFolder folder;
    for (const char* name : {"a.png", "b.png"})
        cv::imwrite(folder / name, cv::Mat(48, 64, CV_8UC3, cv::Scalar(40, 90, 200)));
    const Rig rig((folder.path() + "?seconds=2").c_str());
    const Harness video = rig.harness("vfsrc", "video/x-raw,width=320");
    rig.state(GST_STATE_PLAYING);
    ASSERT_TRUE(pull(video));
    fs::remove(folder / "b.png");
    const std::string error = rig.complaint(GST_MESSAGE_ERROR);
    EXPECT_TRUE(error.starts_with(folder / "b.png" + " is ")) << error;
    pullAll(video);  // comes to the end
}

/// What is in use of the heap; 0 under a sanitizer, which has a heap of its own and tells of leaks at the end.
long heapBytes() {
    const struct mallinfo2 heap = mallinfo2();
    return static_cast<long>(heap.uordblks + heap.hblkhd);
}

TEST(LifeTest, StatesInAnyOrderLeaveNothingBehind) {
    const Rig rig("scene:still-life");
    const Harness video = rig.harness("vfsrc", "video/x-raw,width=176");
    const Harness pictures = rig.harness("imgsrc");
    std::minstd_rand random(7);
    const auto drain = [&] {
        for (GstHarness* const each : {video.get(), pictures.get()}) {
            while (GstBuffer* const more = gst_harness_try_pull(each))
                gst_buffer_unref(more);
        }
    };
    const auto cycles = [&](int many) {
        for (int i = 0; i < many; ++i) {
            for (GstState to = GST_STATE_PLAYING; to != GST_STATE_NULL;) {
                to = static_cast<GstState>(GST_STATE_NULL + random() % 4);
                ASSERT_EQ(rig.state(to),
                          to == GST_STATE_PAUSED ? GST_STATE_CHANGE_NO_PREROLL : GST_STATE_CHANGE_SUCCESS);
                if (random() % 4 == 0)
                    gst_element_send_event(rig.element, gst_event_new_eos());
                else if (to == GST_STATE_PLAYING)
                    g_signal_emit_by_name(rig.element, random() % 2 ? "start-capture" : "stop-capture");
            }
            drain();
            ASSERT_EQ(rig.state(GST_STATE_PLAYING), GST_STATE_CHANGE_SUCCESS);  // what was ended begins anew
            ASSERT_TRUE(pull(video));
            g_signal_emit_by_name(rig.element, "start-capture");
            ASSERT_EQ(rig.state(GST_STATE_NULL), GST_STATE_CHANGE_SUCCESS);
            gst_bus_set_flushing(rig.bus, TRUE);
            gst_bus_set_flushing(rig.bus, FALSE);
            drain();
        }
    };
    cycles(20);  // what the libraries keep is there then
    settle();
    const long threads = count("/proc/self/task"), files = count("/proc/self/fd"), bytes = heapBytes();
    cycles(100);
    settle();
    EXPECT_LE(count("/proc/self/task"), threads + 4);  // the framework keeps some of its own for the next task
    EXPECT_LE(count("/proc/self/fd"), files);
    EXPECT_LT(heapBytes() - bytes, 100 * 8192);  // the smallest frame has 38,016
}

}  // namespace
}  // namespace kov::test
