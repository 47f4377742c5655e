// Owners of GStreamer's counted objects.
#pragma once

#include <gst/gst.h>

#include <memory>

namespace kov::gst {

struct Unref {
    void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
    void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
    void operator()(GstMessage* message) const { gst_message_unref(message); }
    void operator()(GstBufferPool* pool) const {
        gst_buffer_pool_set_active(pool, FALSE);  // buffers that are out go when they come back
        gst_object_unref(pool);
    }
};
using BufferPtr = std::unique_ptr<GstBuffer, Unref>;
using CapsPtr = std::unique_ptr<GstCaps, Unref>;
using MessagePtr = std::unique_ptr<GstMessage, Unref>;
using PoolPtr = std::unique_ptr<GstBufferPool, Unref>;

}  // namespace kov::gst
