#include "platform/RtcPeerConnection.h"

#include "platform/RtcPeerConnectionImpl_p.h"

namespace vrq::rtc {

std::shared_ptr<PeerConnection> PeerConnection::create(const Configuration& configuration, PeerConnectionObserver* observer)
{
    initializeEngine();
    auto connection = std::make_shared<PeerConnectionImpl>(configuration, observer);
    // A connection whose pipeline could not start still exists: its operations complete with errors.
    connection->start();
    return connection;
}

} // namespace vrq::rtc
