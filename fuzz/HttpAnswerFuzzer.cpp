// The back end's HTTP answers: the first byte says which, the rest is the
// body. An experience-code answer carries a remote session that the player
// then starts with; a reconnect's answer is the remote-session object itself.
#include "FuzzCheck.h"
#include "FuzzSession.h"

#include "vrq/utils/VRQJsonHelpers.h"
#include "vrq/utils/VRQRemoteSession.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::string_view body(reinterpret_cast<const char*>(data + 1), size - 1);
    auto& session = FuzzSession::shared();
    const auto& player = session.player();
    const auto object = vrq_dictionaryWithJsonObject(body);

    if (data[0] & 1) {
        const auto text = VRQRemoteSession::experienceSessionText(body);
        // Only an answer with the number 0 as its "Code" names a session.
        FUZZ_CHECK(!text || (object && object->contains("Code") && ((*object)["Code"].is_number() || (*object)["Code"].is_boolean())));
        if (text) {
            player->setGameStatus(VRQGameStatusInited);
            VRQError error;
            player->startGameWithRemoteSession(*text, &error);
        }
    } else {
        const auto answer = VRQRemoteSession::fromJsonText(body);
        FUZZ_CHECK(answer.dictionary == object.value_or(nlohmann::json::object()));
        FUZZ_CHECK(answer.screenConfig.is_object());
        // A usable answer is played as a reconnect plays it.
        if (!answer.sdp.empty()) {
            player->setGameStatus(VRQGameStatusReconnecting);
            const int answersBefore = session.client()->remoteSdps();
            FUZZ_CHECK(player->playGameWithRemoteSdp(answer.dictionary));
            FUZZ_CHECK(session.client()->remoteSdps() == answersBefore + 1);
        }
    }
    FuzzSession::runPendingMainTasks();
    return 0;
}
