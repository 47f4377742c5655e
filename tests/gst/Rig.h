// The element under test, alone: a bus that keeps what it says, and harnesses on its pads.
#pragma once

#include <gst/check/gstharness.h>
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tools/gst/Element.h"
#include "tools/gst/Pointers.h"

namespace kov::test {

using gst::BufferPtr;
using gst::MessagePtr;

constexpr GstClockTime kPatience = 60 * GST_SECOND;  // for what must happen

inline long count(const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

/// Waits until the camera's detached threads have ended, with what they hold, and the framework's that have no work.
inline void settle() {
    g_thread_pool_set_max_unused_threads(0);  // also for those that end from now on
    long before = 0;
    for (int same = 0; same < 20; std::this_thread::sleep_for(std::chrono::milliseconds(10))) {
        const long now = count("/proc/self/task");
        same = now == before ? same + 1 : 0;
        before = now;
    }
}

/// Lets all threads end before the process does: the leak detector stumbles over those that end meanwhile.
class End : public testing::Environment {
public:
    void TearDown() override {
        gst_deinit();
        settle();
    }
};
inline testing::Environment* const gEnd = testing::AddGlobalTestEnvironment(new End);

struct Teardown {
    void operator()(GstHarness* harness) const {
        GstPad* const pad = gst_pad_get_peer(harness->sinkpad);
        gst_pad_unlink(pad, harness->sinkpad);
        gst_object_unref(pad);
        gst_harness_teardown(harness);
    }
};
using Harness = std::unique_ptr<GstHarness, Teardown>;

/// Time counts from its making. The scenes run four times as fast.
class Rig {
public:
    explicit Rig(const char* source = "scene:landscape") {
        setenv("KOV_CAMERA_SPEED", "4", 1);
        setenv("KOV_LOG", "silent", 0);
        gst_init(nullptr, nullptr);
        static const bool registered = GST_ELEMENT_REGISTER(kovcamerasrc, nullptr);
        EXPECT_TRUE(registered);
        element = static_cast<GstElement*>(gst_object_ref_sink(gst_element_factory_make("kovcamerasrc", nullptr)));
        bus = gst_bus_new();
        gst_element_set_bus(element, bus);
        set("source", source);
        set("picture-size", "640x480");
    }
    ~Rig() {
        state(GST_STATE_NULL);
        gst_element_set_bus(element, nullptr);
        gst_object_unref(bus);
        gst_object_unref(element);
    }
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;

    /// Takes what comes out of a pad from now on.
    Harness harness(const char* pad, const char* caps = "ANY") const {
        Harness made(gst_harness_new_with_element(element, nullptr, pad));
        gst_harness_set_sink_caps_str(made.get(), caps);
        gst_harness_use_systemclock(made.get());
        GstClock* const clock = gst_system_clock_obtain();
        gst_element_set_base_time(element, gst_clock_get_time(clock));
        gst_object_unref(clock);
        return made;
    }
    void set(const char* property, const char* value) const {
        gst_util_set_object_arg(G_OBJECT(element), property, value);
    }
    GstStateChangeReturn state(GstState to) const { return gst_element_set_state(element, to); }
    guint64 stat(const char* field) const {
        GstStructure* stats = nullptr;
        g_object_get(element, "stats", &stats, nullptr);
        guint64 value = 0;
        EXPECT_TRUE(gst_structure_get_uint64(stats, field, &value));
        gst_structure_free(stats);
        return value;
    }

    /// The next message of some types; null after the patience.
    MessagePtr next(int types) const {
        return MessagePtr(gst_bus_timed_pop_filtered(bus, kPatience, static_cast<GstMessageType>(types)));
    }
    /// Waits for a warning or an error and returns its text.
    std::string complaint(GstMessageType type) const {
        const MessagePtr message = next(type);
        if (!message)
            return "nothing came";
        GError* error = nullptr;
        (type == GST_MESSAGE_ERROR ? gst_message_parse_error : gst_message_parse_warning)(message.get(), &error,
                                                                                          nullptr);
        std::string text = error->message;
        g_error_free(error);
        return text;
    }
    /// Waits for an element message with this name whose string field, where one is given, begins so.
    bool told(const char* name, const char* field = nullptr, const std::string& text = {}) const {
        for (MessagePtr message = next(GST_MESSAGE_ELEMENT); message; message = next(GST_MESSAGE_ELEMENT)) {
            const GstStructure* const structure = gst_message_get_structure(message.get());
            if (!gst_structure_has_name(structure, name))
                continue;
            const char* const value = field ? gst_structure_get_string(structure, field) : nullptr;
            if (!field || (value && std::string(value).starts_with(text)))
                return true;
        }
        return false;
    }

    GstElement* element;
    GstBus* bus;
};

inline BufferPtr pull(const Harness& harness) {
    return BufferPtr(gst_harness_pull(harness.get()));
}
/// What has come up to the end of the stream.
inline std::vector<BufferPtr> pullAll(const Harness& harness) {
    std::vector<BufferPtr> buffers;
    GstBuffer* raw = nullptr;
    while (gst_harness_pull_until_eos(harness.get(), &raw)) {
        if (!raw)
            return buffers;
        buffers.emplace_back(raw);
    }
    ADD_FAILURE() << "the stream has no end";
    return buffers;
}
inline gst::CapsPtr capsOf(const Harness& harness) {
    return gst::CapsPtr(gst_pad_get_current_caps(harness->sinkpad));
}
inline std::string bytesOf(GstBuffer* buffer) {
    GstMapInfo map;
    gst_buffer_map(buffer, &map, GST_MAP_READ);
    std::string bytes(reinterpret_cast<const char*>(map.data), map.size);
    gst_buffer_unmap(buffer, &map);
    return bytes;
}

}  // namespace kov::test
