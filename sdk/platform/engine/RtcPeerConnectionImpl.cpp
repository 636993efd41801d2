#include "vrq/platform/engine/RtcPeerConnectionImpl_p.h"

#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/dispatch/SerialQueue.h"
#include "vrq/platform/dispatch/Timer.h"
#include "vrq/platform/engine/RtcDataChannelImpl_p.h"
#include "vrq/platform/engine/RtcEngine_p.h"
#include "vrq/platform/engine/RtcFaultInjection_p.h"
#include "vrq/platform/engine/RtcRetransmission_p.h"
#include "vrq/platform/engine/RtcSdpText_p.h"
#include "vrq/platform/engine/RtcStatsCollector_p.h"
#include "vrq/platform/engine/RtcStatsReader_p.h"
#include "vrq/platform/services/LogBackend.h"

#include <gst/sdp/sdp.h>

#include <algorithm>
#include <chrono>

namespace vrq::rtc {
namespace {

using Data = gst::GuardedData<PeerConnectionImpl>;
using SteadyClock = std::chrono::steady_clock;

constexpr auto kSilenceCheckInterval = std::chrono::milliseconds(250);

// Receive-only transceivers: the codecs this kit decodes. The order of the
// calls sets the order of the offer's sections.
constexpr int kVideoPayloadType = 102; // as in kVideoCaps
constexpr const char* kVideoCaps = "application/x-rtp,media=video,encoding-name=H264,payload=102,clock-rate=90000,"
                                   "packetization-mode=(string)1,profile-level-id=(string)42e01f,level-asymmetry-allowed=(string)1";
constexpr const char* kAudioCaps = "application/x-rtp,media=audio,encoding-name=OPUS,payload=111,clock-rate=48000,encoding-params=(string)2";

std::int64_t steadyNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(SteadyClock::now().time_since_epoch()).count();
}

PeerConnectionState stateFromGst(GstWebRTCPeerConnectionState state)
{
    switch (state) {
    case GST_WEBRTC_PEER_CONNECTION_STATE_NEW:
        return PeerConnectionState::New;
    case GST_WEBRTC_PEER_CONNECTION_STATE_CONNECTING:
        return PeerConnectionState::Connecting;
    case GST_WEBRTC_PEER_CONNECTION_STATE_CONNECTED:
        return PeerConnectionState::Connected;
    case GST_WEBRTC_PEER_CONNECTION_STATE_DISCONNECTED:
        return PeerConnectionState::Disconnected;
    case GST_WEBRTC_PEER_CONNECTION_STATE_FAILED:
        return PeerConnectionState::Failed;
    case GST_WEBRTC_PEER_CONNECTION_STATE_CLOSED:
        return PeerConnectionState::Closed;
    }
    return PeerConnectionState::New;
}

IceConnectionState iceStateFromGst(GstWebRTCICEConnectionState state)
{
    switch (state) {
    case GST_WEBRTC_ICE_CONNECTION_STATE_NEW:
        return IceConnectionState::New;
    case GST_WEBRTC_ICE_CONNECTION_STATE_CHECKING:
        return IceConnectionState::Checking;
    case GST_WEBRTC_ICE_CONNECTION_STATE_CONNECTED:
        return IceConnectionState::Connected;
    case GST_WEBRTC_ICE_CONNECTION_STATE_COMPLETED:
        return IceConnectionState::Completed;
    case GST_WEBRTC_ICE_CONNECTION_STATE_FAILED:
        return IceConnectionState::Failed;
    case GST_WEBRTC_ICE_CONNECTION_STATE_DISCONNECTED:
        return IceConnectionState::Disconnected;
    case GST_WEBRTC_ICE_CONNECTION_STATE_CLOSED:
        return IceConnectionState::Closed;
    }
    return IceConnectionState::New;
}

GstWebRTCSDPType sdpTypeToGst(SdpType type)
{
    switch (type) {
    case SdpType::Offer:
        return GST_WEBRTC_SDP_TYPE_OFFER;
    case SdpType::PrAnswer:
        return GST_WEBRTC_SDP_TYPE_PRANSWER;
    case SdpType::Answer:
        return GST_WEBRTC_SDP_TYPE_ANSWER;
    }
    return GST_WEBRTC_SDP_TYPE_OFFER;
}

std::string descriptionText(const GstWebRTCSessionDescription* description)
{
    return description && description->sdp ? gst::takeString(gst_sdp_message_as_text(description->sdp)) : std::string();
}

// The session description held in a promise reply or a property, as text.
std::string descriptionField(const GstStructure* reply, const char* field)
{
    GstWebRTCSessionDescription* description = nullptr;
    if (!reply || !gst_structure_get(reply, field, GST_TYPE_WEBRTC_SESSION_DESCRIPTION, &description, nullptr))
        return {};
    std::string text = descriptionText(description);
    gst_webrtc_session_description_free(description);
    return text;
}

std::string elementFactoryName(GstElement* element)
{
    GstElementFactory* factory = gst_element_get_factory(element);
    return factory ? gst_plugin_feature_get_name(reinterpret_cast<GstPluginFeature*>(factory)) : "";
}

// webrtcbin fingerprints the whole PEM it was given, key included, so its
// descriptions name a certificate that does not exist: the fingerprint of the
// process's certificate replaces it. (webrtcbin does not check fingerprints;
// browsers and other stacks do.)
std::string withOwnFingerprint(const std::string& sdp)
{
    const auto& certificate = engine::certificate();
    return certificate && !sdp.empty() ? SdpText::withFingerprint(sdp, "sha-256 " + certificate->sha256Fingerprint) : sdp;
}

struct PromiseData {
    std::shared_ptr<CallbackGuard<PeerConnectionImpl>> guard;
    std::function<void(PeerConnectionImpl&, const GstStructure*, std::optional<Error>)> handler;

    static gpointer make(std::shared_ptr<CallbackGuard<PeerConnectionImpl>> guard,
                         std::function<void(PeerConnectionImpl&, const GstStructure*, std::optional<Error>)> handler)
    {
        auto* data = new PromiseData{std::move(guard), std::move(handler)};
        gst::handoff();
        return data;
    }
    static void destroy(gpointer data)
    {
        gst::handoff();
        delete static_cast<PromiseData*>(data);
    }
};

} // namespace

PeerConnectionImpl::PeerConnectionImpl(Configuration configuration, std::optional<SendMedia> sendMedia,
                                       PeerConnectionObserver* observer)
    : m_configuration(std::move(configuration))
    , m_sendMedia(std::move(sendMedia))
    , m_observer(observer)
    , m_queue(std::make_shared<SerialQueue>("vrq.rtc.engine"))
    , m_guard(std::make_shared<Guard>(this))
    , m_marks(std::make_shared<StartMarks>())
    , m_inbound(std::make_shared<InboundClock>())
{
    m_inbound->marks = m_marks;
}

PeerConnectionImpl::~PeerConnectionImpl()
{
    close();
}

template <class Function>
void PeerConnectionImpl::connectSignal(gpointer instance, const char* signal, Function* handler)
{
    const gulong id = gst::connect(instance, signal, handler, Data::make(m_guard), Data::destroyClosure);
    std::lock_guard lock(m_mutex);
    m_pipeline.handlers.push_back({gst_object_ref(instance), id});
}

bool PeerConnectionImpl::start()
{
    GstElement* pipeline = gst_pipeline_new(nullptr);
    GstElement* webrtc = gst_element_factory_make("webrtcbin", nullptr);
    if (!pipeline || !webrtc) {
        RTC_LOG(logging::kError, "cannot create webrtcbin; is gstreamer1.0-plugins-bad installed?");
        if (pipeline)
            gst_object_unref(pipeline);
        if (webrtc)
            gst_object_unref(webrtc);
        return false;
    }
    g_object_set(webrtc, "bundle-policy", GST_WEBRTC_BUNDLE_POLICY_MAX_BUNDLE, "latency",
                 static_cast<guint>(std::max(0, m_configuration.jitterBufferLatencyMs)), nullptr);
    {
        std::lock_guard lock(m_mutex);
        m_pipeline.pipeline = pipeline;
        m_pipeline.webrtc = static_cast<GstElement*>(gst_object_ref(webrtc));
    }
    // Watch every socket of the connection for inbound packets, from the start.
    connectSignal(pipeline, "deep-element-added", &PeerConnectionImpl::onDeepElementAdded);
    gst_bin_add(gst::bin(pipeline), webrtc);
    configureIce();

    connectSignal(webrtc, "notify::connection-state", &PeerConnectionImpl::onConnectionStateNotify);
    connectSignal(webrtc, "notify::ice-connection-state", &PeerConnectionImpl::onIceConnectionStateNotify);
    connectSignal(webrtc, "notify::ice-gathering-state", &PeerConnectionImpl::onIceGatheringStateNotify);
    connectSignal(webrtc, "pad-added", &PeerConnectionImpl::onPadAdded);
    connectSignal(webrtc, "on-data-channel", &PeerConnectionImpl::onDataChannel);
    if (gst::ObjectPtr<GstElement> rtpbin{gst_bin_get_by_name(gst::bin(webrtc), "rtpbin")})
        connectSignal(rtpbin.get(), "new-jitterbuffer", &PeerConnectionImpl::onNewJitterBuffer);

    gst::ObjectPtr<GstBus> bus{gst_pipeline_get_bus(reinterpret_cast<GstPipeline*>(pipeline))};
    gst_bus_set_sync_handler(bus.get(), &PeerConnectionImpl::onBusMessage, Data::make(m_guard), Data::destroy);

    // Data channels need webrtcbin in READY at least; PLAYING also receives media.
    if (gst_element_set_state(pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        RTC_LOG(logging::kError, "cannot start the WebRTC pipeline");
        return false;
    }

    std::weak_ptr<Guard> weakGuard = m_guard;
    auto timer = Timer::onQueue(*m_queue, kSilenceCheckInterval, true, [weakGuard] {
        if (auto guard = weakGuard.lock()) {
            if (auto self = guard->borrow())
                self->checkSilence();
        }
    });
    std::lock_guard lock(m_mutex);
    m_silenceTimer = std::move(timer);
    return true;
}

// ICE gathers only on the allowed local addresses, over UDP, and never asks
// the network's router for mappings: libnice's UPnP opens sockets on every
// interface, multicasts outside the machine and delays gathering.
void PeerConnectionImpl::configureIce()
{
    auto element = webrtc();
    GstObject* ice = nullptr;
    g_object_get(element.get(), "ice-agent", &ice, nullptr);
    if (!ice) {
        RTC_LOG(logging::kWarning, "webrtcbin has no ICE agent to configure");
        return;
    }
    std::vector<std::string> addresses = m_configuration.iceAddresses;
    if (addresses.empty())
        addresses = engine::iceAddressesFromEnvironment();
    for (const std::string& address : addresses) {
        gboolean added = FALSE;
        g_signal_emit_by_name(ice, "add-local-ip-address", address.c_str(), &added);
        if (!added)
            RTC_LOG(logging::kWarning, "ICE refused the local address %s", address.c_str());
    }
    g_object_set(ice, "ice-tcp", FALSE, nullptr);
    GObject* agent = nullptr;
    g_object_get(ice, "agent", &agent, nullptr);
    if (agent) {
        // Keepalives as binding requests rather than indications: a peer that
        // stops answering then fails ICE (after about 50 s; without them, never).
        // Checks paced at the configured interval rather than libnice's 20 ms:
        // a start's checks and nomination take three or four of its ticks.
        g_object_set(agent, "upnp", FALSE, "keepalive-conncheck", TRUE, "stun-pacing-timer",
                     static_cast<guint>(std::max(5, m_configuration.iceCheckPacingMs)), nullptr);
        g_object_unref(agent);
    } else {
        RTC_LOG(logging::kWarning, "no libnice agent: UPnP could not be turned off");
    }
    gst_object_unref(ice);
}

gst::ObjectPtr<GstElement> PeerConnectionImpl::webrtc() const
{
    std::lock_guard lock(m_mutex);
    if (m_closed || !m_pipeline.webrtc)
        return nullptr;
    return gst::ObjectPtr<GstElement>(static_cast<GstElement*>(gst_object_ref(m_pipeline.webrtc)));
}

void PeerConnectionImpl::post(Task task)
{
    m_queue->async([guard = m_guard, task = std::move(task)] {
        if (auto self = guard->borrow())
            task(*self.get());
    });
}

// A request that fails at once still completes on the engine's queue, also
// on a closed connection: the caller asked, and hears the answer.
void PeerConnectionImpl::postError(std::function<void(Error)> completion, ErrorCode code, std::string message)
{
    RTC_LOG(logging::kWarning, "%s", message.c_str());
    m_queue->async([completion = std::move(completion), error = Error{kErrorDomain, code, std::move(message)}] {
        completion(error);
    });
}

GstPromise* PeerConnectionImpl::makePromise(ReplyHandler handler)
{
    return gst_promise_new_with_change_func(&PeerConnectionImpl::onPromiseReplied, PromiseData::make(m_guard, std::move(handler)),
                                            &PromiseData::destroy);
}

// On webrtcbin's thread: the handler copies what it needs and posts.
void PeerConnectionImpl::onPromiseReplied(GstPromise* promise, gpointer data)
{
    gst::HandoffScope scope;
    auto& promiseData = *static_cast<PromiseData*>(data);
    auto self = promiseData.guard->borrow();
    if (!self)
        return;
    const GstPromiseResult result = gst_promise_wait(promise);
    const GstStructure* reply = result == GST_PROMISE_RESULT_REPLIED ? gst_promise_get_reply(promise) : nullptr;
    std::optional<Error> error;
    if (result != GST_PROMISE_RESULT_REPLIED) {
        error = Error{kErrorDomain, EngineError, "the WebRTC engine dropped the request"};
    } else if (reply && gst_structure_has_field(reply, "error")) {
        GError* replyError = nullptr;
        gst_structure_get(reply, "error", G_TYPE_ERROR, &replyError, nullptr);
        error = Error{kErrorDomain, EngineError, replyError ? replyError->message : "unknown engine error"};
        if (replyError)
            g_error_free(replyError);
    }
    promiseData.handler(*self.get(), reply, std::move(error));
}

void PeerConnectionImpl::addRecvOnlyTransceiver(MediaType type)
{
    auto element = webrtc();
    if (!element || type == MediaType::Data)
        return;
    gst::CapsPtr caps{gst_caps_from_string(type == MediaType::Video ? kVideoCaps : kAudioCaps)};
    GstWebRTCRTPTransceiver* transceiver = nullptr;
    g_signal_emit_by_name(element.get(), "add-transceiver", GST_WEBRTC_RTP_TRANSCEIVER_DIRECTION_RECVONLY, caps.get(), &transceiver);
    if (!transceiver) {
        RTC_LOG(logging::kError, "webrtcbin refused a receive-only transceiver");
        return;
    }
    requestRetransmissions(transceiver, type);
    gst_object_unref(transceiver);
    std::lock_guard lock(m_mutex);
    m_transceivers.push_back({type, TransceiverDirection::RecvOnly});
}

std::shared_ptr<DataChannel> PeerConnectionImpl::createDataChannel(const std::string& label, bool ordered,
                                                                   DataChannelObserver* observer)
{
    auto element = webrtc();
    if (!element)
        return nullptr;
    gst::StructurePtr options{gst_structure_new("application/data-channel", "ordered", G_TYPE_BOOLEAN, ordered ? TRUE : FALSE, nullptr)};
    GstWebRTCDataChannel* channel = nullptr;
    g_signal_emit_by_name(element.get(), "create-data-channel", label.c_str(), options.get(), &channel);
    if (!channel) {
        RTC_LOG(logging::kError, "webrtcbin refused the data channel \"%s\"", label.c_str());
        return nullptr;
    }
    auto wrapped = DataChannelImpl::wrap(channel, m_queue, observer);
    gst_object_unref(channel);
    std::lock_guard lock(m_mutex);
    if (m_closed) {
        wrapped->detach();
        return wrapped;
    }
    m_channels.push_back(wrapped);
    return wrapped;
}

// The offer is made on request only, never from "on-negotiation-needed": that
// signal fires with the first transceiver, and an offer made then may lack
// the data-channel section.
void PeerConnectionImpl::offer(DescriptionCompletion completion)
{
    if (std::string missing = missingEngineParts(); !missing.empty()) {
        postError([completion](Error error) { completion(std::nullopt, error); }, Unavailable,
                  "cannot receive media: " + missing);
        return;
    }
    auto element = webrtc();
    if (!element) {
        postError([completion](Error error) { completion(std::nullopt, error); }, Unavailable, "the connection is closed");
        return;
    }
    GstPromise* promise = makePromise([completion](PeerConnectionImpl& self, const GstStructure* reply, std::optional<Error> error) {
        std::string sdp;
        if (!error) {
            // Mids "0", "1", "2" as other stacks name them (webrtcbin says
            // "video0"...), and profile-level-id last in the H.264 fmtp so
            // that a pattern reading up to the next blank takes its six digits.
            sdp = withOwnFingerprint(SdpText::withProfileLevelIdLast(SdpText::withIndexMids(descriptionField(reply, "offer"))));
            std::vector<std::string> expected;
            {
                std::lock_guard lock(self.m_mutex);
                for (const TransceiverInfo& transceiver : self.m_transceivers)
                    expected.push_back(transceiver.mediaType == MediaType::Video ? "video" : "audio");
                if (!self.m_channels.empty())
                    expected.push_back("application");
            }
            if (SdpText::mediaKinds(sdp) != expected)
                error = Error{kErrorDomain, UnexpectedOffer, "the offer's sections are not the expected ones"};
        }
        if (error)
            RTC_LOG(logging::kError, "offer failed: %s", error->description.c_str());
        self.post([completion, sdp = std::move(sdp), error](PeerConnectionImpl&) {
            if (error)
                completion(std::nullopt, error);
            else
                completion(SessionDescription{SdpType::Offer, sdp}, std::nullopt);
        });
    });
    g_signal_emit_by_name(element.get(), "create-offer", nullptr, promise);
    gst_promise_unref(promise);
}

void PeerConnectionImpl::answer(DescriptionCompletion completion)
{
    auto element = webrtc();
    if (!element) {
        postError([completion](Error error) { completion(std::nullopt, error); }, Unavailable, "the connection is closed");
        return;
    }
    GstPromise* promise = makePromise([completion](PeerConnectionImpl& self, const GstStructure* reply, std::optional<Error> error) {
        std::string sdp = error ? std::string() : withOwnFingerprint(descriptionField(reply, "answer"));
        if (!error && sdp.empty())
            error = Error{kErrorDomain, EngineError, "webrtcbin gave no answer"};
        self.post([completion, sdp = std::move(sdp), error](PeerConnectionImpl&) {
            if (error)
                completion(std::nullopt, error);
            else
                completion(SessionDescription{SdpType::Answer, sdp}, std::nullopt);
        });
    });
    g_signal_emit_by_name(element.get(), "create-answer", nullptr, promise);
    gst_promise_unref(promise);
}

void PeerConnectionImpl::setLocalDescription(const SessionDescription& description, Completion completion)
{
    auto element = webrtc();
    if (!element) {
        postError(completion, Unavailable, "the connection is closed");
        return;
    }
    GstSDPMessage* sdp = nullptr;
    if (!SdpText::isWellFormed(description.sdp) || gst_sdp_message_new_from_text(description.sdp.c_str(), &sdp) != GST_SDP_OK) {
        if (sdp)
            gst_sdp_message_free(sdp);
        postError(completion, InvalidDescription, "the local description is not a session description");
        return;
    }
    GstWebRTCSessionDescription* gstDescription = gst_webrtc_session_description_new(sdpTypeToGst(description.type), sdp);
    GstPromise* promise = makePromise([completion](PeerConnectionImpl& self, const GstStructure*, std::optional<Error> error) {
        self.post([completion, error](PeerConnectionImpl&) { completion(error); });
    });
    g_signal_emit_by_name(element.get(), "set-local-description", gstDescription, promise);
    gst_promise_unref(promise);
    gst_webrtc_session_description_free(gstDescription);
}

void PeerConnectionImpl::setRemoteDescription(const SessionDescription& description, Completion completion)
{
    auto element = webrtc();
    if (!element) {
        postError(completion, Unavailable, "the connection is closed");
        return;
    }
    GstSDPMessage* sdp = nullptr;
    if (!SdpText::isWellFormed(description.sdp) || gst_sdp_message_new_from_text(description.sdp.c_str(), &sdp) != GST_SDP_OK) {
        if (sdp)
            gst_sdp_message_free(sdp);
        postError(completion, InvalidDescription, "the remote description is not a session description");
        return;
    }
    m_marks->mark(StartMarks::AnswerGiven);
    // An answering peer sends with the payload types the offer chose, so
    // they are read before webrtcbin sees the offer.
    const bool answering = description.type == SdpType::Offer && m_sendMedia.has_value();
    if (answering) {
        SendBranch::PayloadTypes types;
        types.video = SdpText::payloadType(description.sdp, "video", "H264").value_or(types.video);
        types.audio = SdpText::payloadType(description.sdp, "audio", "OPUS").value_or(types.audio);
        std::lock_guard lock(m_mutex);
        m_offeredPayloadTypes = types;
    }
    GstWebRTCSessionDescription* gstDescription = gst_webrtc_session_description_new(sdpTypeToGst(description.type), sdp);
    GstPromise* promise = makePromise([completion, answering](PeerConnectionImpl& self, const GstStructure*, std::optional<Error> error) {
        if (!error)
            self.m_marks->mark(StartMarks::AnswerApplied);
        self.post([completion, answering, error](PeerConnectionImpl& connection) {
            std::optional<Error> result = error;
            if (!result && answering)
                result = connection.attachSendMedia();
            if (result)
                RTC_LOG(logging::kWarning, "remote description failed: %s", result->description.c_str());
            else
                connection.startIceDeadline();
            completion(result);
        });
    });
    g_signal_emit_by_name(element.get(), "set-remote-description", gstDescription, promise);
    gst_promise_unref(promise);
    gst_webrtc_session_description_free(gstDescription);
}

// On the engine's queue, after webrtcbin applied the remote offer: the media
// is linked to sink_0 (video) and sink_1 (audio), which webrtcbin pairs with
// the offer's first two sections, and their transceivers become send-only.
// (webrtcbin 1.22 makes no transceiver for a remote offer by itself: the
// requested pads make them.)
std::optional<Error> PeerConnectionImpl::attachSendMedia()
{
    auto element = webrtc();
    SendBranch::PayloadTypes types;
    GstElement* pipeline = nullptr;
    {
        std::lock_guard lock(m_mutex);
        if (!element || m_send)
            return std::nullopt;
        types = m_offeredPayloadTypes.value_or(types);
        pipeline = m_pipeline.pipeline;
    }
    auto send = std::make_unique<SendBranch>(*m_sendMedia, types);
    std::string error;
    const bool attached = send->attach(pipeline, element.get(), error);
    std::lock_guard lock(m_mutex);
    m_send = std::move(send);
    if (!attached)
        return Error{kErrorDomain, EngineError, error};
    m_transceivers = {{MediaType::Video, TransceiverDirection::SendOnly}, {MediaType::Audio, TransceiverDirection::SendOnly}};
    return std::nullopt;
}

void PeerConnectionImpl::localDescriptionWithCandidates(DescriptionCompletion completion)
{
    bool complete = false;
    {
        std::lock_guard lock(m_mutex);
        if (m_closed)
            return;
        complete = m_gatheringComplete;
        m_waitingForCandidates.push_back(std::move(completion));
    }
    if (complete)
        readGatheredDescription();
}

void PeerConnectionImpl::readGatheredDescription()
{
    auto element = webrtc();
    if (!element)
        return;
    GstWebRTCSessionDescription* description = nullptr;
    g_object_get(element.get(), "local-description", &description, nullptr);
    std::string sdp = descriptionText(description);
    const SdpType type = description && description->type == GST_WEBRTC_SDP_TYPE_ANSWER ? SdpType::Answer : SdpType::Offer;
    if (description)
        gst_webrtc_session_description_free(description);
    std::vector<DescriptionCompletion> waiting;
    {
        std::lock_guard lock(m_mutex);
        waiting.swap(m_waitingForCandidates);
    }
    for (auto& completion : waiting) {
        post([completion = std::move(completion), sdp, type](PeerConnectionImpl&) {
            if (sdp.empty())
                completion(std::nullopt, Error{kErrorDomain, Unavailable, "there is no local description"});
            else
                completion(SessionDescription{type, sdp}, std::nullopt);
        });
    }
}

PeerConnectionState PeerConnectionImpl::connectionState() const
{
    std::lock_guard lock(m_mutex);
    return m_state;
}

IceConnectionState PeerConnectionImpl::iceConnectionState() const
{
    std::lock_guard lock(m_mutex);
    return m_iceState;
}

std::vector<TransceiverInfo> PeerConnectionImpl::transceivers() const
{
    std::lock_guard lock(m_mutex);
    return m_transceivers;
}

void PeerConnectionImpl::requestStatistics(std::function<void(PeerConnectionImpl&, std::vector<StatsEntry>)> done)
{
    auto element = webrtc();
    if (!element)
        return;
    GstPromise* promise = makePromise([done](PeerConnectionImpl& self, const GstStructure* reply, std::optional<Error> error) {
        std::vector<StatsEntry> entries;
        if (error)
            RTC_LOG(logging::kWarning, "statistics failed: %s", error->description.c_str());
        else
            entries = StatsReader::read(reply);
        self.post([done, entries = std::move(entries)](PeerConnectionImpl& connection) { done(connection, entries); });
    });
    g_signal_emit_by_name(element.get(), "get-stats", nullptr, promise);
    gst_promise_unref(promise);
}

std::vector<ReceiveBranch::Figures> PeerConnectionImpl::streamFigures() const
{
    std::vector<std::shared_ptr<ReceiveBranch>> branches;
    {
        std::lock_guard lock(m_mutex);
        for (const auto& [ssrc, branch] : m_branches)
            branches.push_back(branch);
    }
    const auto now = MediaMeter::Clock::now();
    std::vector<ReceiveBranch::Figures> figures;
    for (const auto& branch : branches)
        figures.push_back(branch->figures(now));
    return figures;
}

void PeerConnectionImpl::legacyStatistics(std::function<void(std::vector<LegacyStatsReport>)> completion)
{
    requestStatistics([completion](PeerConnectionImpl& self, std::vector<StatsEntry> entries) {
        completion(StatsCollector::legacy(entries, self.streamFigures()));
    });
}

void PeerConnectionImpl::statistics(std::function<void(StatsReport)> completion)
{
    requestStatistics([completion](PeerConnectionImpl& self, std::vector<StatsEntry> entries) {
        completion(StatsCollector::standard(entries, self.streamFigures()));
    });
}

StartTimeline PeerConnectionImpl::startTimeline() const
{
    return m_marks->timeline();
}

void PeerConnectionImpl::setVideoSink(std::shared_ptr<VideoSink> sink)
{
    std::lock_guard lock(m_mutex);
    m_videoSink = std::move(sink);
}

void PeerConnectionImpl::setAudioVolume(double volume)
{
    m_volume.store(std::max(0.0, volume));
    std::lock_guard lock(m_mutex);
    for (const auto& [ssrc, branch] : m_branches) {
        if (branch->media() == MediaType::Audio)
            branch->setVolume(m_volume.load());
    }
}

void PeerConnectionImpl::close()
{
    std::shared_ptr<Resources> resources;
    {
        std::lock_guard lock(m_mutex);
        if (m_closed)
            return;
        m_closed = true;
        resources = std::make_shared<Resources>();
        resources->pipeline = std::exchange(m_pipeline, Pipeline{});
        resources->silenceTimer = std::move(m_silenceTimer);
        resources->branches.swap(m_branches);
        resources->channels.swap(m_channels);
        resources->send = std::move(m_send);
        m_videoSink.reset();
        m_waitingForCandidates.clear();
        m_state = PeerConnectionState::Closed;
        m_iceState = IceConnectionState::Closed;
    }
    const bool onStreamingThread = isStreamingCallback(*resources);
    stopCallbacks(*resources);
    if (!onStreamingThread) {
        teardown(std::exchange(resources->pipeline, Pipeline{}));
        return;
    }
    // Inside a decoded-video event the pipeline cannot be stopped here:
    // stopping joins this very thread. The branch whose callback is running
    // is released with the pipeline, whose stop waits for this thread to
    // leave the callback.
    dispatchGlobalAsync([resources] {
        teardown(std::exchange(resources->pipeline, Pipeline{}));
        resources->branches.clear();
        resources->send.reset();
    });
}

bool PeerConnectionImpl::isStreamingCallback(const Resources& resources) const
{
    if (m_guard->isBorrowedHere() && !m_queue->isCurrent())
        return true;
    if (resources.send && resources.send->isCallingBack())
        return true;
    return std::any_of(resources.branches.begin(), resources.branches.end(),
                       [](const auto& entry) { return entry.second->isCallingBack(); });
}

// Once this returns no callback of the connection, its branches or its
// channels runs on another thread, and none starts.
void PeerConnectionImpl::stopCallbacks(Resources& resources)
{
    if (resources.silenceTimer)
        resources.silenceTimer->cancel();
    for (const auto& [ssrc, branch] : resources.branches)
        branch->stop();
    if (resources.send)
        resources.send->stop();
    m_guard->reset(nullptr);
    for (const auto& channel : resources.channels)
        channel->detach();
}

void PeerConnectionImpl::teardown(Pipeline pipeline)
{
    if (!pipeline.pipeline)
        return;
    gst_element_set_state(pipeline.pipeline, GST_STATE_NULL);
    for (const SignalHandler& handler : pipeline.handlers) {
        g_signal_handler_disconnect(handler.instance, handler.id);
        gst_object_unref(handler.instance);
    }
    gst::ObjectPtr<GstBus> bus{gst_pipeline_get_bus(reinterpret_cast<GstPipeline*>(pipeline.pipeline))};
    gst_bus_set_sync_handler(bus.get(), nullptr, nullptr, nullptr);
    if (pipeline.webrtc)
        gst_object_unref(pipeline.webrtc);
    gst_object_unref(pipeline.pipeline);
}

// States: webrtcbin's, except that a connected peer that has received media
// and then heard nothing for the configured time reads as disconnected.
void PeerConnectionImpl::updateStates()
{
    PeerConnectionState state = stateFromGst(m_gstState);
    IceConnectionState iceState = iceStateFromGst(m_gstIceState);
    if (m_unreachable || m_elementFailed) {
        state = PeerConnectionState::Failed;
        iceState = IceConnectionState::Failed;
    }
    if (m_silent) {
        if (state == PeerConnectionState::Connected)
            state = PeerConnectionState::Disconnected;
        if (iceState == IceConnectionState::Connected || iceState == IceConnectionState::Completed)
            iceState = IceConnectionState::Disconnected;
    }
    if (iceState != m_iceState) {
        // webrtcbin often goes from checking straight to completed; other
        // stacks always pass through connected, which the kit acts on.
        if (iceState == IceConnectionState::Completed && m_iceState != IceConnectionState::Connected)
            postIceState(IceConnectionState::Connected);
        m_iceState = iceState;
        postIceState(iceState);
    }
    if (state != m_state) {
        m_state = state;
        RTC_LOG(logging::kInfo, "connection state %s", stringForState(state));
        post([state](PeerConnectionImpl& self) {
            if (self.m_observer)
                self.m_observer->didChangeConnectionState(state);
        });
    }
}

void PeerConnectionImpl::postIceState(IceConnectionState state)
{
    post([state](PeerConnectionImpl& self) {
        if (self.m_observer)
            self.m_observer->didChangeIceConnectionState(state);
    });
}

// The remote description is in: ICE has a bounded time to connect.
void PeerConnectionImpl::startIceDeadline()
{
    std::lock_guard lock(m_mutex);
    if (m_configuration.iceConnectTimeoutMs > 0 && !iceReached(m_gstIceState))
        m_iceDeadlineNs = steadyNs() + std::int64_t{m_configuration.iceConnectTimeoutMs} * 1'000'000;
}

bool PeerConnectionImpl::iceReached(GstWebRTCICEConnectionState state)
{
    return state == GST_WEBRTC_ICE_CONNECTION_STATE_CONNECTED || state == GST_WEBRTC_ICE_CONNECTION_STATE_COMPLETED;
}

// Candidates that can never connect leave ICE checking for a long time (or
// for ever): past the deadline the connection is reported failed.
void PeerConnectionImpl::checkIceDeadline()
{
    if (m_iceDeadlineNs == 0 || m_unreachable)
        return;
    if (iceReached(m_gstIceState)) {
        m_iceDeadlineNs = 0;
        return;
    }
    if (steadyNs() < m_iceDeadlineNs)
        return;
    m_unreachable = true;
    RTC_LOG(logging::kWarning, "ICE did not connect within %d ms: no candidate pair is reachable",
            m_configuration.iceConnectTimeoutMs);
    updateStates();
}

void PeerConnectionImpl::checkSilence()
{
    const std::int64_t silentNs = steadyNs() - m_inbound->lastNs.load();
    std::lock_guard lock(m_mutex);
    if (m_closed)
        return;
    checkIceDeadline();
    const bool armed = m_configuration.disconnectTimeoutMs > 0 && m_gstState == GST_WEBRTC_PEER_CONNECTION_STATE_CONNECTED
                       && !m_branches.empty();
    const bool silent = armed && silentNs > std::int64_t{m_configuration.disconnectTimeoutMs} * 1'000'000;
    if (silent == m_silent)
        return;
    m_silent = silent;
    RTC_LOG(logging::kWarning, silent ? "nothing received for %d ms: the peer is gone" : "traffic resumed after %d ms of silence",
            m_configuration.disconnectTimeoutMs);
    updateStates();
}

bool PeerConnectionImpl::postElementError(const std::string& factoryName)
{
    gst::ObjectPtr<GstElement> pipeline;
    {
        std::lock_guard lock(m_mutex);
        if (m_closed || !m_pipeline.pipeline)
            return false;
        pipeline.reset(static_cast<GstElement*>(gst_object_ref(m_pipeline.pipeline)));
    }
    GValue found = G_VALUE_INIT;
    GstIterator* elements = gst_bin_iterate_recurse(gst::bin(pipeline.get()));
    const gboolean any = gst_iterator_find_custom(
        elements,
        [](gconstpointer item, gconstpointer wanted) -> gint {
            auto* element = static_cast<GstElement*>(g_value_get_object(static_cast<const GValue*>(item)));
            GstElementFactory* factory = gst_element_get_factory(element);
            return factory && *static_cast<const std::string*>(wanted) == GST_OBJECT_NAME(factory) ? 0 : 1;
        },
        &found, const_cast<std::string*>(&factoryName));
    gst_iterator_free(elements);
    if (!any)
        return false;
    auto* element = static_cast<GstElement*>(g_value_get_object(&found));
    GST_ELEMENT_ERROR(element, STREAM, FAILED, ("injected failure"), (nullptr));
    g_value_unset(&found);
    return true;
}

bool postElementError(PeerConnection& connection, const std::string& factoryName)
{
    auto* impl = dynamic_cast<PeerConnectionImpl*>(&connection);
    return impl && impl->postElementError(factoryName);
}

void PeerConnectionImpl::elementFailed()
{
    std::lock_guard lock(m_mutex);
    if (m_closed || m_elementFailed)
        return;
    m_elementFailed = true;
    updateStates();
}

std::shared_ptr<ReceiveBranch> PeerConnectionImpl::branchFor(unsigned ssrc)
{
    std::lock_guard lock(m_mutex);
    if (m_closed)
        return nullptr;
    auto& branch = m_branches[ssrc];
    if (!branch)
        branch = std::make_shared<ReceiveBranch>(ssrc, static_cast<ReceiveBranch::Listener*>(this), m_marks);
    return branch;
}

void PeerConnectionImpl::connectionStateChanged()
{
    auto element = webrtc();
    if (!element)
        return;
    GstWebRTCPeerConnectionState state = GST_WEBRTC_PEER_CONNECTION_STATE_NEW;
    g_object_get(element.get(), "connection-state", &state, nullptr);
    if (state == GST_WEBRTC_PEER_CONNECTION_STATE_CONNECTED)
        m_inbound->lastNs.store(steadyNs());
    std::lock_guard lock(m_mutex);
    m_gstState = state;
    updateStates();
}

void PeerConnectionImpl::iceConnectionStateChanged()
{
    auto element = webrtc();
    if (!element)
        return;
    GstWebRTCICEConnectionState state = GST_WEBRTC_ICE_CONNECTION_STATE_NEW;
    g_object_get(element.get(), "ice-connection-state", &state, nullptr);
    if (iceReached(state))
        m_marks->mark(StartMarks::IceConnected);
    std::lock_guard lock(m_mutex);
    m_gstIceState = state;
    updateStates();
}

void PeerConnectionImpl::iceGatheringStateChanged()
{
    auto element = webrtc();
    if (!element)
        return;
    GstWebRTCICEGatheringState state = GST_WEBRTC_ICE_GATHERING_STATE_NEW;
    g_object_get(element.get(), "ice-gathering-state", &state, nullptr);
    {
        std::lock_guard lock(m_mutex);
        m_gatheringComplete = state == GST_WEBRTC_ICE_GATHERING_STATE_COMPLETE;
        if (!m_gatheringComplete)
            return;
    }
    readGatheredDescription();
}

// On a streaming thread: the stream's SSRC and media come from its caps
// (with BUNDLE webrtcbin's statistics may name the wrong kind).
void PeerConnectionImpl::padAdded(GstPad* pad)
{
    if (GST_PAD_DIRECTION(pad) != GST_PAD_SRC)
        return;
    gst::CapsPtr caps{gst_pad_get_current_caps(pad)};
    if (!caps)
        caps.reset(gst_pad_query_caps(pad, nullptr));
    const GstStructure* structure = caps && gst_caps_get_size(caps.get()) > 0 ? gst_caps_get_structure(caps.get(), 0) : nullptr;
    const gchar* mediaName = structure ? gst_structure_get_string(structure, "media") : nullptr;
    guint ssrc = 0;
    if (!mediaName || !gst_structure_get_uint(structure, "ssrc", &ssrc)) {
        RTC_LOG(logging::kWarning, "a received stream without media or SSRC is ignored");
        return;
    }
    const std::string media(mediaName);
    if (media != "video" && media != "audio")
        return;
    const MediaType type = media == "video" ? MediaType::Video : MediaType::Audio;
    auto branch = branchFor(ssrc);
    if (!branch)
        return;
    GstElement* pipeline = nullptr;
    {
        std::lock_guard lock(m_mutex);
        pipeline = m_pipeline.pipeline;
    }
    if (!pipeline || !branch->build(pipeline, pad, type, m_volume.load())) {
        RTC_LOG(logging::kError, "cannot play the received %s stream %u", media.c_str(), ssrc);
        return;
    }
    RTC_LOG(logging::kInfo, "receiving %s stream %u", media.c_str(), ssrc);
    post([type](PeerConnectionImpl& self) {
        if (self.m_observer)
            self.m_observer->didAddStream(type == MediaType::Video ? 1 : 0, type == MediaType::Audio ? 1 : 0);
    });
}

// The remote side opened a channel; its signals are connected here, before
// this callback returns, so that no message is missed.
void PeerConnectionImpl::dataChannelAnnounced(GstWebRTCDataChannel* channel)
{
    auto wrapped = DataChannelImpl::wrap(channel, m_queue);
    {
        std::lock_guard lock(m_mutex);
        if (m_closed) {
            wrapped->detach();
            return;
        }
        m_channels.push_back(wrapped);
    }
    post([wrapped](PeerConnectionImpl& self) {
        if (self.m_observer)
            self.m_observer->didOpenDataChannel(wrapped);
    });
}

// webrtcbin sends no NACKs for a receive-only stream unless its jitter buffer
// asks for retransmissions. A stream starts as soon as two packets in a row
// came in, instead of after the buffer's whole latency: the first key frame
// is not held back.
void PeerConnectionImpl::jitterBufferCreated(GstElement* jitterBuffer, unsigned ssrc)
{
    g_object_set(jitterBuffer, "do-retransmission", TRUE, "faststart-min-packets", 2U, nullptr);
    if (auto branch = branchFor(ssrc))
        branch->attachJitterBuffer(jitterBuffer);
}

void PeerConnectionImpl::branchDidDecodeFirstFrame()
{
    if (m_observer)
        m_observer->didReceiveFirstFrame();
}

void PeerConnectionImpl::branchDidChangeVideoSize(int width, int height)
{
    if (m_observer)
        m_observer->didChangeVideoSize(width, height);
}

void PeerConnectionImpl::branchDidReceiveSei(const std::uint8_t* data, std::size_t length)
{
    if (m_observer)
        m_observer->didReceiveSei(data, length);
}

void PeerConnectionImpl::branchDidDecodeFrame(std::shared_ptr<const VideoFrame> frame)
{
    std::shared_ptr<VideoSink> sink;
    {
        std::lock_guard lock(m_mutex);
        sink = m_videoSink;
    }
    if (!sink)
        return;
    m_marks->mark(StartMarks::FirstFrameDelivered);
    sink->onFrame(std::move(frame));
}

void PeerConnectionImpl::onConnectionStateNotify(GObject*, GParamSpec*, gpointer data)
{
    if (Data::Entry self{data})
        self->connectionStateChanged();
}

void PeerConnectionImpl::onIceConnectionStateNotify(GObject*, GParamSpec*, gpointer data)
{
    if (Data::Entry self{data})
        self->iceConnectionStateChanged();
}

void PeerConnectionImpl::onIceGatheringStateNotify(GObject*, GParamSpec*, gpointer data)
{
    if (Data::Entry self{data})
        self->iceGatheringStateChanged();
}

void PeerConnectionImpl::onPadAdded(GstElement*, GstPad* pad, gpointer data)
{
    if (Data::Entry self{data})
        self->padAdded(pad);
}

void PeerConnectionImpl::onDataChannel(GstElement*, GstWebRTCDataChannel* channel, gpointer data)
{
    if (Data::Entry self{data})
        self->dataChannelAnnounced(channel);
}

void PeerConnectionImpl::onNewJitterBuffer(GstElement*, GstElement* jitterBuffer, guint, guint ssrc, gpointer data)
{
    if (Data::Entry self{data})
        self->jitterBufferCreated(jitterBuffer, ssrc);
}

// Elements of webrtcbin's transports, as they are made: every socket is
// watched for inbound packets, every DTLS decoder uses the process's
// certificate and reports its handshake.
void PeerConnectionImpl::onDeepElementAdded(GstBin*, GstBin*, GstElement* element, gpointer data)
{
    const std::string factory = elementFactoryName(element);
    if (factory != "nicesrc" && factory != "dtlssrtpdec" && factory != "dtlsdec")
        return;
    Data::Entry self{data};
    if (!self)
        return;
    if (factory == "nicesrc")
        self->watchInboundPackets(element);
    else if (factory == "dtlsdec")
        self->watchDtls(element);
    else if (const auto& certificate = engine::certificate())
        g_object_set(element, "pem", certificate->pem.c_str(), nullptr);
}

void PeerConnectionImpl::watchInboundPackets(GstElement* source)
{
    gst::ObjectPtr<GstPad> pad{gst_element_get_static_pad(source, "src")};
    if (!pad)
        return;
    const auto mask = static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST);
    auto* clock = new std::shared_ptr<InboundClock>(m_inbound);
    gst::handoff();
    gst_pad_add_probe(pad.get(), mask, &PeerConnectionImpl::onInboundPacket, clock, [](gpointer released) {
        gst::handoff();
        delete static_cast<std::shared_ptr<InboundClock>*>(released);
    });
}

void PeerConnectionImpl::watchDtls(GstElement* decoder)
{
    auto* marks = new std::shared_ptr<StartMarks>(m_marks);
    gst::handoff();
    gst::connect(decoder, "on-key-received", &PeerConnectionImpl::onDtlsKeys, marks, [](gpointer released, GClosure*) {
        gst::handoff();
        delete static_cast<std::shared_ptr<StartMarks>*>(released);
    });
}

void PeerConnectionImpl::onDtlsKeys(GstElement*, gpointer data)
{
    gst::HandoffScope scope;
    (*static_cast<std::shared_ptr<StartMarks>*>(data))->mark(StartMarks::DtlsConnected);
}

namespace {

// Whether a packet off the wire is RTP (not STUN, DTLS or RTCP) of the
// offered video payload type. The RTP header is not encrypted.
bool isVideoRtp(GstBuffer* buffer)
{
    std::uint8_t header[2];
    if (gst_buffer_extract(buffer, 0, header, sizeof header) != sizeof header)
        return false;
    return (header[0] & 0xC0) == 0x80 && (header[1] & 0x7F) == kVideoPayloadType;
}

} // namespace

GstPadProbeReturn PeerConnectionImpl::onInboundPacket(GstPad*, GstPadProbeInfo* info, gpointer data)
{
    gst::HandoffScope scope;
    InboundClock& inbound = **static_cast<std::shared_ptr<InboundClock>*>(data);
    inbound.lastNs.store(steadyNs());
    if (inbound.marks->reached(StartMarks::FirstRtpPacket))
        return GST_PAD_PROBE_OK;
    gst::forEachBuffer(info, [&](GstBuffer* buffer) {
        if (isVideoRtp(buffer))
            inbound.marks->mark(StartMarks::FirstRtpPacket);
    });
    return GST_PAD_PROBE_OK;
}

// Messages are handled where they are posted and dropped, so none piles up
// on a bus that no main loop watches.
GstBusSyncReply PeerConnectionImpl::onBusMessage(GstBus*, GstMessage* message, gpointer data)
{
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ERROR:
    case GST_MESSAGE_WARNING: {
        GError* error = nullptr;
        gchar* debug = nullptr;
        const bool isError = GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR;
        if (isError)
            gst_message_parse_error(message, &error, &debug);
        else
            gst_message_parse_warning(message, &error, &debug);
        const std::string source = message->src ? gst::takeString(gst_object_get_path_string(message->src)) : std::string();
        RTC_LOG(isError ? logging::kError : logging::kWarning, "%s: %s (%s)", source.c_str(), error ? error->message : "",
                debug ? debug : "");
        if (error)
            g_error_free(error);
        g_free(debug);
        // An element that failed (the decoder, DTLS, a transport) stops its
        // part of the pipeline for good: the connection has failed.
        if (Data::Entry self{data}; self && isError)
            self->post([](PeerConnectionImpl& connection) { connection.elementFailed(); });
        break;
    }
    case GST_MESSAGE_LATENCY:
        // A live sink joined: the pipeline's latency is recomputed off the streaming thread.
        if (Data::Entry self{data}) {
            self->post([](PeerConnectionImpl& connection) {
                GstElement* pipeline = nullptr;
                {
                    std::lock_guard lock(connection.m_mutex);
                    if (connection.m_pipeline.pipeline)
                        pipeline = static_cast<GstElement*>(gst_object_ref(connection.m_pipeline.pipeline));
                }
                if (pipeline) {
                    gst_bin_recalculate_latency(gst::bin(pipeline));
                    gst_object_unref(pipeline);
                }
            });
        }
        break;
    default:
        break;
    }
    // A sync handler that drops a message owns it: unreferenced here, or
    // every message would keep its source element, and so the whole
    // pipeline with its sockets and threads, alive after close.
    gst_message_unref(message);
    return GST_BUS_DROP;
}

} // namespace vrq::rtc
