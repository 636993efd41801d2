// The server's messages on every data channel, through the player's router:
// the first byte picks the label and text or binary, the rest is the message.
#include "FuzzCheck.h"
#include "FuzzSession.h"

#include "vrq/core/VRQGameMessageHandler.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace {

class CountingHandler : public VRQGameMessageHandler {
public:
    void handleMessageType(const std::string&, const nlohmann::json& message) override
    {
        FUZZ_CHECK(message.is_object());
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    auto& session = FuzzSession::shared();
    const auto& player = session.player();
    // A host handler for one type of the "ack" family, registered once.
    static CountingHandler handler;
    static const bool registered = (player->registerMessageHandler(&handler, "game_notice"), true);
    (void)registered;

    const std::array<std::string, 7> labels{"hb", "ack", "sv", "cd", "km", session.customChannel()->channelLabel(),
                                            "custom_trans_0"};
    const std::string& label = labels[(data[0] & 0x7) % labels.size()];
    const bool isBinary = (data[0] & 0x8) != 0;
    // Every input meets a session in play: a disconnect order of the one before does not mute it.
    player->setGameStatus(VRQGameStatusPlaying);

    const bool handled = session.client()->deliver(label, std::string(reinterpret_cast<const char*>(data + 1), size - 1),
                                                   isBinary);
    // The five fixed labels and the open custom channel always have their handler.
    FUZZ_CHECK(handled == (label != "custom_trans_0"));
    FuzzSession::runPendingMainTasks();
    const auto orientation = player->videoOrientation();
    FUZZ_CHECK(orientation == 1 || orientation == 3);
    return 0;
}
