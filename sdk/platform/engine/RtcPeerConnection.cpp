#include "vrq/platform/engine/RtcPeerConnection.h"

#include "vrq/platform/engine/RtcPeerConnectionImpl_p.h"

namespace vrq::rtc {

namespace {

std::shared_ptr<PeerConnectionImpl> startConnection(const Configuration& configuration, std::optional<SendMedia> media,
                                                    PeerConnectionObserver* observer)
{
    initializeEngine();
    auto connection = std::make_shared<PeerConnectionImpl>(configuration, std::move(media), observer);
    // A connection whose pipeline could not start still exists: its operations complete with errors.
    connection->start();
    return connection;
}

} // namespace

std::shared_ptr<PeerConnection> PeerConnection::create(const Configuration& configuration, PeerConnectionObserver* observer)
{
    return startConnection(configuration, std::nullopt, observer);
}

std::shared_ptr<AnsweringPeerConnection> AnsweringPeerConnection::create(const Configuration& configuration,
                                                                         SendMedia media, PeerConnectionObserver* observer)
{
    return startConnection(configuration, std::move(media), observer);
}

} // namespace vrq::rtc
