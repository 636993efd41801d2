#include "GameSession.h"

#include "GamepadOverlay.h"
#include "HeartbeatReply.h"
#include "PointerOverlay.h"

#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/dispatch/SerialQueue.h"
#include "vrq/platform/dispatch/Timer.h"

#include <algorithm>

namespace vrqserver {

namespace rtc = vrq::rtc;

namespace {

vrq::rtc::Error sessionError(int code, std::string description)
{
    return vrq::rtc::Error{"vrqserver", code, std::move(description)};
}

} // namespace

// The answer's completion, shared by the steps of the answer and by close(),
// whichever finishes first.
class GameSession::PendingAnswer {
public:
    explicit PendingAnswer(AnswerCompletion completion)
        : m_completion(std::move(completion))
    {
    }

    void finish(std::optional<std::string> answerSdp, std::optional<vrq::rtc::Error> error)
    {
        AnswerCompletion completion;
        {
            std::lock_guard lock(m_mutex);
            completion = std::move(m_completion);
            m_completion = nullptr;
        }
        if (completion)
            completion(std::move(answerSdp), std::move(error));
    }

private:
    std::mutex m_mutex;
    AnswerCompletion m_completion; // guarded by m_mutex
};

GameSession::GameSession(Settings settings)
    : m_settings(std::move(settings))
    , m_queue(std::make_unique<vrq::SerialQueue>("vrqserver.session." + m_settings.id))
{
    // The other labels are recorded only, until something here needs to answer them.
    m_handlers["hb"] = [](GameSession& session, const ChannelMessage& message) { session.onHeartbeat(message); };
}

std::shared_ptr<GameSession> GameSession::create(Settings settings)
{
    std::shared_ptr<GameSession> session(new GameSession(std::move(settings)));
    auto connection = rtc::AnsweringPeerConnection::create(session->configuration(), session->sendMedia(), session.get());
    if (!connection)
        return nullptr;
    std::lock_guard lock(session->m_mutex);
    session->m_connection = std::move(connection);
    return session;
}

GameSession::~GameSession()
{
    close();
}

rtc::Configuration GameSession::configuration() const
{
    rtc::Configuration configuration;
    configuration.iceAddresses = m_settings.iceAddresses;
    return configuration;
}

rtc::SendMedia GameSession::sendMedia() const
{
    rtc::SendMedia media;
    media.videoLaunch = videoLaunchDescription(m_settings.video);
    media.audioLaunch = audioLaunchDescription();
    // The engine calls this on its streaming thread for every frame, so it
    // holds the detection state, not the session.
    media.seiText = [detect = m_rttDetect] { return detect->text(vrq::nowMs()); };
    media.sendVideo = [frozen = m_videoFrozen] { return !frozen->load(); };
    media.videoWire = [link = m_link](const rtc::WirePacket& packet) { return link->decide(packet); };
    media.drawVideo = [overlay = m_overlay, pointer = m_pointer, gamepad = m_gamepad](rtc::VideoCanvas& canvas) {
        overlay->draw(canvas);
        GamepadOverlay::draw(gamepad->pad(), canvas);
        PointerOverlay::draw(pointer->snapshot(), canvas);
    };
    return media;
}

void GameSession::post(std::function<void(GameSession&)> task)
{
    m_queue->async([weak = weak_from_this(), task = std::move(task)] {
        if (auto self = weak.lock())
            task(*self);
    });
}

std::shared_ptr<rtc::AnsweringPeerConnection> GameSession::connection() const
{
    std::lock_guard lock(m_mutex);
    return m_connection;
}

void GameSession::hop(const std::weak_ptr<GameSession>& weak, std::function<void(GameSession&)> task)
{
    if (auto session = weak.lock())
        session->post(std::move(task));
}

// Each step's completion arrives on the engine's thread and moves on to the
// session's queue; a closed session has already failed the pending answer.
void GameSession::answer(const std::string& offerSdp, AnswerCompletion completion)
{
    auto pending = std::make_shared<PendingAnswer>(std::move(completion));
    std::shared_ptr<rtc::AnsweringPeerConnection> pc;
    {
        std::lock_guard lock(m_mutex);
        if (!m_closed && !m_pendingAnswer) {
            m_pendingAnswer = pending;
            pc = m_connection;
        }
    }
    if (!pc) {
        pending->finish(std::nullopt, sessionError(1, "the session is closed or already answered"));
        return;
    }
    pc->setRemoteDescription({rtc::SdpType::Offer, offerSdp}, [weak = weak_from_this(), pending](std::optional<vrq::rtc::Error> error) {
        if (error)
            pending->finish(std::nullopt, error);
        else
            hop(weak, [pending](GameSession& session) { session.createAnswer(pending); });
    });
}

void GameSession::createAnswer(const std::shared_ptr<PendingAnswer>& pending)
{
    if (auto pc = connection())
        pc->answer([weak = weak_from_this(), pending](std::optional<rtc::SessionDescription> description,
                                                      std::optional<vrq::rtc::Error> error) {
            if (!description || error)
                pending->finish(std::nullopt, error ? error : sessionError(2, "no answer"));
            else
                hop(weak, [pending, answer = *description](GameSession& session) { session.setAnswer(pending, answer); });
        });
}

void GameSession::setAnswer(const std::shared_ptr<PendingAnswer>& pending, const rtc::SessionDescription& answer)
{
    if (auto pc = connection())
        pc->setLocalDescription(answer, [weak = weak_from_this(), pending](std::optional<vrq::rtc::Error> error) {
            if (error)
                pending->finish(std::nullopt, error);
            else
                hop(weak, [pending](GameSession& session) { session.completeAnswer(pending); });
        });
}

// The client sends no candidates of its own and expects none to trickle: the
// answer goes out whole, with every candidate gathered.
void GameSession::completeAnswer(const std::shared_ptr<PendingAnswer>& pending)
{
    if (auto pc = connection())
        pc->localDescriptionWithCandidates(
            [pending](std::optional<rtc::SessionDescription> description, std::optional<vrq::rtc::Error> error) {
                if (!description || error)
                    pending->finish(std::nullopt, error ? error : sessionError(2, "no local description"));
                else
                    pending->finish(description->sdp, std::nullopt);
            });
}

void GameSession::startHeartbeatWatch()
{
    const auto timeout = m_settings.heartbeatTimeout;
    if (timeout.count() <= 0)
        return;
    m_lastHeartbeatMs = vrq::nowMs();
    const auto period = std::clamp(timeout / 4, std::chrono::milliseconds(10), std::chrono::milliseconds(1000));
    auto watch = vrq::Timer::onQueue(*m_queue, period, true, [weak = weak_from_this()] {
        if (auto session = weak.lock())
            session->checkHeartbeat();
    });
    std::lock_guard lock(m_mutex);
    if (m_closed)
        watch->cancel();
    else
        m_heartbeatWatch = std::move(watch);
}

void GameSession::checkHeartbeat()
{
    if (vrq::nowMs() - m_lastHeartbeatMs.load() > m_settings.heartbeatTimeout.count())
        close();
}

bool GameSession::send(const std::string& label, const std::string& text)
{
    return sendBuffer(label, rtc::DataBuffer{text, false});
}

bool GameSession::sendBinary(const std::string& label, const std::string& bytes)
{
    return sendBuffer(label, rtc::DataBuffer{bytes, true});
}

bool GameSession::isChannelOpen(const std::string& label) const
{
    std::lock_guard lock(m_mutex);
    const auto found = m_channels.find(label);
    return found != m_channels.end() && found->second->readyState() == rtc::DataChannelState::Open;
}

bool GameSession::sendBuffer(const std::string& label, rtc::DataBuffer buffer)
{
    std::shared_ptr<rtc::DataChannel> channel;
    {
        std::lock_guard lock(m_mutex);
        if (auto found = m_channels.find(label); found != m_channels.end())
            channel = found->second;
    }
    return channel && channel->readyState() == rtc::DataChannelState::Open && channel->sendData(buffer);
}

void GameSession::setChannelHandler(const std::string& label, ChannelHandler handler)
{
    std::lock_guard lock(m_mutex);
    if (handler)
        m_handlers[label] = std::move(handler);
    else
        m_handlers.erase(label);
}

void GameSession::setOpenHandler(OpenHandler handler)
{
    std::lock_guard lock(m_mutex);
    m_openHandler = std::move(handler);
}

void GameSession::setInputObserver(InputObserver observer)
{
    std::lock_guard lock(m_observerMutex);
    m_inputObserver = std::move(observer);
}

void GameSession::addCloseHandler(std::function<void()> handler)
{
    {
        std::lock_guard lock(m_mutex);
        if (!m_closed) {
            m_closeHandlers.push_back(std::move(handler));
            return;
        }
    }
    handler();
}

void GameSession::statistics(std::function<void(vrq::StatsReport)> completion) const
{
    auto pc = connection();
    if (!pc || isClosed()) {
        completion({});
        return;
    }
    pc->statistics(std::move(completion));
}

std::vector<std::string> GameSession::openChannels() const
{
    std::map<std::string, std::shared_ptr<rtc::DataChannel>> channels;
    {
        std::lock_guard lock(m_mutex);
        channels = m_channels;
    }
    // The engine is asked outside our lock, so that no lock of ours is held while it takes its own.
    std::vector<std::string> labels;
    for (const auto& [label, channel] : channels)
        if (channel->readyState() == rtc::DataChannelState::Open)
            labels.push_back(label);
    return labels;
}

bool GameSession::isClosed() const
{
    std::lock_guard lock(m_mutex);
    return m_closed;
}

void GameSession::close()
{
    std::shared_ptr<rtc::AnsweringPeerConnection> pc;
    std::map<std::string, std::shared_ptr<rtc::DataChannel>> channels;
    std::shared_ptr<PendingAnswer> pending;
    std::shared_ptr<vrq::Timer> watch;
    std::vector<std::function<void()>> closeHandlers;
    {
        std::lock_guard lock(m_mutex);
        if (m_closed)
            return;
        m_closed = true;
        pc = std::move(m_connection);
        channels.swap(m_channels);
        pending = std::move(m_pendingAnswer);
        watch = std::move(m_heartbeatWatch);
        closeHandlers.swap(m_closeHandlers);
    }
    if (watch)
        watch->cancel();
    for (auto& [label, channel] : channels)
        channel->setObserver(nullptr);
    if (pc)
        pc->close();
    if (pending)
        pending->finish(std::nullopt, sessionError(3, "the session was closed"));
    for (const auto& handler : closeHandlers)
        handler();
}

void GameSession::didChangeConnectionState(rtc::PeerConnectionState state)
{
    m_connectionState = state;
    // Silence is counted from the connection on, so a slow start is not taken for a gone client.
    if (state == rtc::PeerConnectionState::Connected)
        post([](GameSession& session) { session.startHeartbeatWatch(); });
    // The client gives up on a connection that is disconnected or failed and
    // offers anew; free this one's pipeline, off the engine's threads.
    if (state == rtc::PeerConnectionState::Disconnected || state == rtc::PeerConnectionState::Failed)
        post([](GameSession& session) { session.close(); });
}

void GameSession::didChangeIceConnectionState(rtc::IceConnectionState) {}

void GameSession::didAddStream(int, int) {}

void GameSession::didOpenDataChannel(std::shared_ptr<rtc::DataChannel> channel)
{
    if (!channel)
        return;
    const std::string label = channel->label();
    {
        // Under the lock, so that close() either sees the channel or makes us drop it.
        // No observer callback takes this lock.
        std::lock_guard lock(m_mutex);
        if (m_closed)
            return;
        m_channels[label] = channel;
        channel->setObserver(this);
    }
    // The answerer usually learns of a channel once it is already open: then
    // no state change follows.
    post([label](GameSession& session) { session.announceIfOpen(label); });
}

void GameSession::dataChannelDidChangeState(rtc::DataChannel& channel)
{
    if (channel.readyState() == rtc::DataChannelState::Open)
        post([label = channel.label()](GameSession& session) { session.announceIfOpen(label); });
}

void GameSession::announceIfOpen(const std::string& label)
{
    std::shared_ptr<rtc::DataChannel> channel;
    OpenHandler handler;
    {
        std::lock_guard lock(m_mutex);
        if (auto found = m_channels.find(label); found != m_channels.end())
            channel = found->second;
        handler = m_openHandler;
    }
    if (!channel || channel->readyState() != rtc::DataChannelState::Open || !m_announced.insert(label).second)
        return;
    if (handler)
        handler(*this, label);
}

void GameSession::observeInput(const ChannelMessage& message, std::chrono::steady_clock::time_point arrival)
{
    InputObserver observer;
    {
        std::lock_guard lock(m_observerMutex);
        observer = m_inputObserver;
    }
    if (observer)
        observer(message, arrival);
}

void GameSession::dataChannelDidReceiveMessage(rtc::DataChannel& channel, const rtc::DataBuffer& buffer)
{
    const auto arrival = std::chrono::steady_clock::now();
    ChannelMessage message{channel.label(), buffer.isBinary, buffer.data, vrq::nowMs()};
    if (message.label == "km")
        observeInput(message, arrival);
    if (message.label == "hb")
        m_lastHeartbeatMs = message.arrivalMs;
    m_messageLog.append(message);
    post([message = std::move(message)](GameSession& session) { session.dispatch(message); });
}

void GameSession::dispatch(const ChannelMessage& message)
{
    ChannelHandler handler;
    {
        std::lock_guard lock(m_mutex);
        if (auto found = m_handlers.find(message.label); found != m_handlers.end())
            handler = found->second;
    }
    if (handler)
        handler(*this, message);
}

void GameSession::onHeartbeat(const ChannelMessage& message)
{
    const nlohmann::json heartbeat = nlohmann::json::parse(message.bytes, nullptr, false);
    m_rttDetect->onHeartbeat(heartbeat, message.arrivalMs);
    if (const auto reply = heartbeatReply(heartbeat, m_settings.token))
        send("hb", reply->dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

} // namespace vrqserver
