#include "BenchPlayerHost.h"

#include "vrq/control/VRQGameVideoView.h"
#include "vrq/core/VRQGamePlayer.h"
#include "vrq/platform/services/HttpTransport.h"

std::shared_ptr<BenchPlayerHost> BenchPlayerHost::create(const std::string& backendOrigin)
{
    std::shared_ptr<BenchPlayerHost> host(new BenchPlayerHost(backendOrigin));
    host->m_player = VRQGamePlayer::create(nlohmann::json::object(), host->weak_from_this());
    host->m_player->videoView()->setFrame({{0, 0}, {1280, 720}});
    return host;
}

void BenchPlayerHost::stop()
{
    if (m_player)
        m_player->stopGame();
}

void BenchPlayerHost::onInitSuccess(const std::string& clientSession)
{
    vrq::HttpRequest request;
    request.method = "POST";
    request.url = m_backendOrigin + "/session";
    request.headers["Content-Type"] = "text/plain";
    request.body = clientSession;
    vrq::HttpTransport::shared().send(std::move(request), [weak = weak_from_this()](auto error, vrq::HttpResponse response) {
        auto self = weak.lock();
        if (!self)
            return;
        if (error || response.status != 200)
            self->m_failure = -1;
        else
            self->start(response.body);
    });
}

void BenchPlayerHost::start(const std::string& remoteSession)
{
    m_startedAt = Clock::now();
    VRQError error;
    if (!m_player->startGameWithRemoteSession(remoteSession, &error))
        m_failure = -1;
}

void BenchPlayerHost::onInitFailure(int code, const VRQError&)
{
    m_failure = code;
}

void BenchPlayerHost::onConnectionFailure(int code, const std::optional<VRQError>&)
{
    m_failure = code;
}

void BenchPlayerHost::onStartReConnectWithReason(int code)
{
    m_reconnectReasons.push_back(code);
}

void BenchPlayerHost::onVideoShow()
{
    m_videoShows.push_back(Clock::now());
}
