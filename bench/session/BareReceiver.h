#pragma once

// webrtcbin's library is marked unstable API in GStreamer 1.22.
#ifndef GST_USE_UNSTABLE_API
#define GST_USE_UNSTABLE_API
#endif

#include <gst/gst.h>
#include <gst/sdp/sdp.h>
#include <gst/webrtc/webrtc.h>

#include <atomic>
#include <mutex>
#include <optional>
#include <string>

// The receive benchmark's baseline: webrtcbin alone, offering receive-only
// H.264 video and Opus audio with one data channel, and doing nothing with
// what arrives but depayload and decode it into fakesinks: no conversion, no
// delivery, no statistics. Decoded frames are counted at the decoder's output.
// ICE uses 127.0.0.1 only, over UDP, without UPnP.
class BareReceiver {
public:
    static constexpr const char* kVideoCaps = "application/x-rtp,media=video,encoding-name=H264,payload=102,clock-rate=90000,"
                                              "packetization-mode=(string)1,profile-level-id=(string)42e01f,"
                                              "level-asymmetry-allowed=(string)1";
    static constexpr const char* kAudioCaps =
        "application/x-rtp,media=audio,encoding-name=OPUS,payload=111,clock-rate=48000,encoding-params=(string)2";

    BareReceiver() { m_started = build() && play() && addTransceiver(kVideoCaps) && addTransceiver(kAudioCaps) && addChannel(); }
    // Stopping the pipeline joins webrtcbin's and the streaming threads: no
    // callback runs on this object afterwards.
    ~BareReceiver()
    {
        if (m_pipeline) {
            gst_element_set_state(m_pipeline, GST_STATE_NULL);
            gst_object_unref(m_pipeline);
        }
        if (m_channel)
            g_object_unref(m_channel);
    }
    BareReceiver(const BareReceiver&) = delete;
    BareReceiver& operator=(const BareReceiver&) = delete;

    bool started() const { return m_started; }

    // Asks for the offer; offer() has it once it is the local description.
    void makeOffer()
    {
        if (!m_started)
            return;
        GstPromise* promise = gst_promise_new_with_change_func(&BareReceiver::onOfferCreated, this, nullptr);
        g_signal_emit_by_name(m_webrtc, "create-offer", nullptr, promise);
    }
    std::optional<std::string> offer() const
    {
        std::lock_guard lock(m_mutex);
        return m_offer;
    }
    // The answer carries the remote candidates: nothing trickles.
    bool applyAnswer(const std::string& sdp)
    {
        GstSDPMessage* message = nullptr;
        if (gst_sdp_message_new_from_text(sdp.c_str(), &message) != GST_SDP_OK) {
            if (message)
                gst_sdp_message_free(message);
            return false;
        }
        GstWebRTCSessionDescription* answer = gst_webrtc_session_description_new(GST_WEBRTC_SDP_TYPE_ANSWER, message);
        GstPromise* promise = gst_promise_new();
        g_signal_emit_by_name(m_webrtc, "set-remote-description", answer, promise);
        gst_promise_unref(promise);
        gst_webrtc_session_description_free(answer);
        return true;
    }

    bool firstFrame() const { return m_frames.load() > 0; }
    long frames() const { return m_frames.load(); }

private:
    static GObject* object(gpointer instance) { return static_cast<GObject*>(instance); }
    static GstBin* bin(GstElement* element) { return reinterpret_cast<GstBin*>(element); }

    template <class Handler>
    static void connect(gpointer instance, const char* signal, Handler* handler, gpointer data)
    {
        g_signal_connect_data(instance, signal, reinterpret_cast<GCallback>(handler), data, nullptr, GConnectFlags(0));
    }

    bool build()
    {
        m_pipeline = gst_pipeline_new("bare-receiver");
        m_webrtc = gst_element_factory_make("webrtcbin", "webrtc");
        if (!m_pipeline || !m_webrtc)
            return false;
        gst_util_set_object_arg(object(m_webrtc), "bundle-policy", "max-bundle");
        g_object_set(m_webrtc, "latency", 20U, nullptr);
        gst_bin_add(bin(m_pipeline), m_webrtc);
        configureIce();
        connect(m_webrtc, "pad-added", &BareReceiver::onPadAdded, this);
        GstElement* rtpbin = gst_bin_get_by_name(bin(m_webrtc), "rtpbin");
        if (!rtpbin)
            return false;
        connect(rtpbin, "new-jitterbuffer", &BareReceiver::onNewJitterBuffer, this);
        gst_object_unref(rtpbin);
        return true;
    }

    void configureIce()
    {
        GstObject* ice = nullptr;
        g_object_get(m_webrtc, "ice-agent", &ice, nullptr);
        if (!ice)
            return;
        gboolean added = FALSE;
        g_signal_emit_by_name(ice, "add-local-ip-address", "127.0.0.1", &added);
        g_object_set(ice, "ice-tcp", FALSE, nullptr);
        GObject* agent = nullptr;
        g_object_get(ice, "agent", &agent, nullptr);
        if (agent) {
            g_object_set(agent, "upnp", FALSE, nullptr);
            g_object_unref(agent);
        }
        gst_object_unref(ice);
    }

    // Data channels need webrtcbin in READY at least.
    bool play() { return gst_element_set_state(m_pipeline, GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE; }

    bool addTransceiver(const char* capsText)
    {
        GstCaps* caps = gst_caps_from_string(capsText);
        GstWebRTCRTPTransceiver* transceiver = nullptr;
        g_signal_emit_by_name(m_webrtc, "add-transceiver", GST_WEBRTC_RTP_TRANSCEIVER_DIRECTION_RECVONLY, caps, &transceiver);
        gst_caps_unref(caps);
        if (!transceiver)
            return false;
        gst_object_unref(transceiver);
        return true;
    }

    bool addChannel()
    {
        g_signal_emit_by_name(m_webrtc, "create-data-channel", "hb", nullptr, &m_channel);
        return m_channel != nullptr;
    }

    static void onOfferCreated(GstPromise* promise, gpointer data)
    {
        auto* self = static_cast<BareReceiver*>(data);
        GstWebRTCSessionDescription* offer = nullptr;
        if (gst_promise_wait(promise) == GST_PROMISE_RESULT_REPLIED)
            gst_structure_get(gst_promise_get_reply(promise), "offer", GST_TYPE_WEBRTC_SESSION_DESCRIPTION, &offer, nullptr);
        gst_promise_unref(promise);
        if (offer) {
            self->setLocal(offer);
            gst_webrtc_session_description_free(offer);
        }
    }

    void setLocal(const GstWebRTCSessionDescription* offer)
    {
        // Sent as webrtcbin wrote it, mids "video0", "audio1", "application2" included.
        gchar* text = gst_sdp_message_as_text(offer->sdp);
        {
            std::lock_guard lock(m_mutex);
            m_pendingOffer = text;
        }
        g_free(text);
        GstPromise* promise = gst_promise_new_with_change_func(&BareReceiver::onLocalSet, this, nullptr);
        g_signal_emit_by_name(m_webrtc, "set-local-description", offer, promise);
    }

    static void onLocalSet(GstPromise* promise, gpointer data)
    {
        auto* self = static_cast<BareReceiver*>(data);
        // Success is a reply without a structure.
        const bool replied = gst_promise_wait(promise) == GST_PROMISE_RESULT_REPLIED;
        const GstStructure* reply = replied ? gst_promise_get_reply(promise) : nullptr;
        const bool failed = !replied || (reply && gst_structure_has_field(reply, "error"));
        gst_promise_unref(promise);
        std::lock_guard lock(self->m_mutex);
        if (!failed)
            self->m_offer = self->m_pendingOffer;
    }

    static void onNewJitterBuffer(GstElement*, GstElement* jitterBuffer, guint, guint, gpointer)
    {
        g_object_set(jitterBuffer, "do-retransmission", TRUE, nullptr);
    }

    static void onPadAdded(GstElement*, GstPad* pad, gpointer data)
    {
        if (gst_pad_get_direction(pad) != GST_PAD_SRC)
            return;
        GstCaps* caps = gst_pad_get_current_caps(pad);
        if (!caps)
            caps = gst_pad_query_caps(pad, nullptr);
        const GstStructure* structure = caps && gst_caps_get_size(caps) > 0 ? gst_caps_get_structure(caps, 0) : nullptr;
        const gchar* media = structure ? gst_structure_get_string(structure, "media") : nullptr;
        const bool video = media && std::string(media) == "video";
        if (caps)
            gst_caps_unref(caps);
        auto* self = static_cast<BareReceiver*>(data);
        if (video)
            self->linkVideo(pad);
        else
            self->linkAudio(pad);
    }

    void linkVideo(GstPad* pad)
    {
        GstElement* depay = gst_element_factory_make("rtph264depay", nullptr);
        GstElement* parse = gst_element_factory_make("h264parse", nullptr);
        GstElement* decoder = gst_element_factory_make("avdec_h264", nullptr);
        GstElement* sink = fakeSink();
        if (!depay || !parse || !decoder || !sink)
            return;
        // Slice threads, as the kit's decoder uses.
        gst_util_set_object_arg(object(decoder), "thread-type", "slice");
        gst_bin_add_many(bin(m_pipeline), depay, parse, decoder, sink, nullptr);
        if (!gst_element_link_many(depay, parse, decoder, sink, nullptr))
            return;
        countFramesOf(decoder);
        for (GstElement* element : {sink, decoder, parse, depay})
            gst_element_sync_state_with_parent(element);
        linkTo(pad, depay);
    }

    // The audio is decoded too, as the kit must, but played nowhere.
    void linkAudio(GstPad* pad)
    {
        GstElement* depay = gst_element_factory_make("rtpopusdepay", nullptr);
        GstElement* decoder = gst_element_factory_make("opusdec", nullptr);
        GstElement* sink = fakeSink();
        if (!depay || !decoder || !sink)
            return;
        gst_bin_add_many(bin(m_pipeline), depay, decoder, sink, nullptr);
        if (!gst_element_link_many(depay, decoder, sink, nullptr))
            return;
        for (GstElement* element : {sink, decoder, depay})
            gst_element_sync_state_with_parent(element);
        linkTo(pad, depay);
    }

    static GstElement* fakeSink()
    {
        GstElement* sink = gst_element_factory_make("fakesink", nullptr);
        if (sink)
            g_object_set(sink, "sync", FALSE, nullptr);
        return sink;
    }

    static void linkTo(GstPad* pad, GstElement* element)
    {
        GstPad* sinkPad = gst_element_get_static_pad(element, "sink");
        gst_pad_link(pad, sinkPad);
        gst_object_unref(sinkPad);
    }

    void countFramesOf(GstElement* decoder)
    {
        GstPad* src = gst_element_get_static_pad(decoder, "src");
        gst_pad_add_probe(
            src, GST_PAD_PROBE_TYPE_BUFFER,
            [](GstPad*, GstPadProbeInfo*, gpointer data) {
                ++static_cast<BareReceiver*>(data)->m_frames;
                return GST_PAD_PROBE_OK;
            },
            this, nullptr);
        gst_object_unref(src);
    }

    GstElement* m_pipeline = nullptr;
    GstElement* m_webrtc = nullptr; // owned by m_pipeline
    GstWebRTCDataChannel* m_channel = nullptr;
    bool m_started = false;
    std::atomic<long> m_frames{0};
    mutable std::mutex m_mutex;
    std::string m_pendingOffer;         // guarded by m_mutex
    std::optional<std::string> m_offer; // guarded by m_mutex
};
