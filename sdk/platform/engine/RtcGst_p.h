#pragma once

// Typed helpers over GLib and GStreamer C macros, so that the engine's code
// stays free of C-style casts.

// webrtcbin's library and the codec parsers are marked unstable API in
// GStreamer 1.22; the engine is written against 1.22 as it is.
#ifndef GST_USE_UNSTABLE_API
#define GST_USE_UNSTABLE_API
#endif

#include "vrq/platform/engine/RtcCallbackGuard_p.h"

#include <gst/gst.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace vrq::rtc::gst {

inline GstBin* bin(GstElement* element) { return reinterpret_cast<GstBin*>(element); }

// Connects a typed handler; the data is released by destroy when the handler
// is disconnected or its instance finalised.
template <class Function>
gulong connect(gpointer instance, const char* signal, Function* handler, gpointer data, GClosureNotify destroy)
{
    return g_signal_connect_data(instance, signal, reinterpret_cast<GCallback>(handler), data, destroy, GConnectFlags(0));
}

// GStreamer hands a callback's user data to its own threads under GLib's
// locks, which ThreadSanitizer cannot see (and which order nothing of ours by
// contract). Every hand-off therefore also passes this one atomic: the thread
// that fills the data releases after it, each callback acquires on entry and
// releases on exit, and the thread that frees the data acquires first.
inline std::atomic<std::uint64_t> g_handoff{0};

inline void handoff()
{
    g_handoff.fetch_add(1, std::memory_order_acq_rel);
}

// Passes the hand-off atomic on construction and destruction: the first
// member of every callback's scope.
class HandoffScope {
public:
    HandoffScope() { handoff(); }
    ~HandoffScope() { handoff(); }
    HandoffScope(const HandoffScope&) = delete;
    HandoffScope& operator=(const HandoffScope&) = delete;
};

// Heap user data of a GLib or GStreamer callback: the guard of the object the
// callback serves.
template <class T>
class GuardedData {
public:
    static gpointer make(std::shared_ptr<CallbackGuard<T>> guard)
    {
        auto* data = new GuardedData(std::move(guard));
        handoff();
        return data;
    }
    static void destroy(gpointer data)
    {
        handoff();
        delete static_cast<GuardedData*>(data);
    }
    static void destroyClosure(gpointer data, GClosure*) { destroy(data); }

    // One callback's use of the data: the borrowed target, empty once the
    // target stopped listening.
    class Entry {
    public:
        explicit Entry(gpointer data)
            : m_borrow(static_cast<GuardedData*>(data)->m_guard->borrow())
        {
        }
        T* get() const { return m_borrow.get(); }
        T* operator->() const { return m_borrow.get(); }
        explicit operator bool() const { return static_cast<bool>(m_borrow); }

    private:
        HandoffScope m_scope; // first in, last out
        typename CallbackGuard<T>::Borrow m_borrow;
    };

private:
    explicit GuardedData(std::shared_ptr<CallbackGuard<T>> guard)
        : m_guard(std::move(guard))
    {
    }
    const std::shared_ptr<CallbackGuard<T>> m_guard;
};

// Owning references to GStreamer objects and mini-objects.
struct ObjectUnref {
    void operator()(gpointer object) const
    {
        if (object)
            gst_object_unref(object);
    }
};
template <class T>
using ObjectPtr = std::unique_ptr<T, ObjectUnref>;

struct CapsUnref {
    void operator()(GstCaps* caps) const
    {
        if (caps)
            gst_caps_unref(caps);
    }
};
using CapsPtr = std::unique_ptr<GstCaps, CapsUnref>;

struct StructureFree {
    void operator()(GstStructure* structure) const
    {
        if (structure)
            gst_structure_free(structure);
    }
};
using StructurePtr = std::unique_ptr<GstStructure, StructureFree>;

struct GFree {
    void operator()(gpointer memory) const { g_free(memory); }
};
using CharsPtr = std::unique_ptr<gchar, GFree>;

// A C string that GLib allocated, as text (empty for null).
inline std::string takeString(gchar* text)
{
    CharsPtr owned(text);
    return owned ? std::string(owned.get()) : std::string();
}

// A numeric field of any integer or floating type, as a double.
inline std::optional<double> number(const GstStructure* structure, const char* field)
{
    const GValue* value = gst_structure_get_value(structure, field);
    if (!value)
        return std::nullopt;
    GValue converted = G_VALUE_INIT;
    g_value_init(&converted, G_TYPE_DOUBLE);
    std::optional<double> result;
    if (g_value_type_transformable(value->g_type, G_TYPE_DOUBLE) && g_value_transform(value, &converted))
        result = g_value_get_double(&converted);
    g_value_unset(&converted);
    return result;
}

inline GstBuffer* probeBuffer(GstPadProbeInfo* info)
{
    return (info->type & GST_PAD_PROBE_TYPE_BUFFER) ? gst_pad_probe_info_get_buffer(info) : nullptr;
}

inline GstEvent* probeEvent(GstPadProbeInfo* info)
{
    return (info->type & GST_PAD_PROBE_TYPE_EVENT_BOTH) ? gst_pad_probe_info_get_event(info) : nullptr;
}

inline GstBufferList* probeBufferList(GstPadProbeInfo* info)
{
    return (info->type & GST_PAD_PROBE_TYPE_BUFFER_LIST) ? gst_pad_probe_info_get_buffer_list(info) : nullptr;
}

// Calls fn for the buffer of a probe, or for each buffer of a list.
template <class Function>
void forEachBuffer(GstPadProbeInfo* info, Function fn)
{
    if (GstBuffer* buffer = probeBuffer(info)) {
        fn(buffer);
    } else if (GstBufferList* list = probeBufferList(info)) {
        const guint count = gst_buffer_list_length(list);
        for (guint i = 0; i < count; ++i)
            fn(gst_buffer_list_get(list, i));
    }
}

} // namespace vrq::rtc::gst
