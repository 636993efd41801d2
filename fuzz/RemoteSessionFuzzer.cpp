// The back end's remote session as a host hands it to the player: base64
// text of a JSON object, whose members the player reads to start the game.
#include "FuzzCheck.h"
#include "FuzzSession.h"

#include "vrq/platform/services/Crypto.h"
#include "vrq/utils/VRQJsonHelpers.h"
#include "vrq/utils/VRQRemoteSession.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

constexpr int kUntouched = 123456789;

void checkSession(const nlohmann::json& object)
{
    const auto session = VRQRemoteSession::fromDictionary(object);
    FUZZ_CHECK(session.dictionary == object);
    FUZZ_CHECK(session.screenConfig.is_object());
    FUZZ_CHECK(session.appId.is_number());
    const auto sdp = object.find("sdp");
    FUZZ_CHECK(session.sdp == (sdp != object.end() && sdp->is_string() ? sdp->get<std::string>() : std::string()));
    const auto code = object.find("code");
    if (code == object.end() || !code->is_number())
        FUZZ_CHECK(session.code == -1);
    // The start's log line shows any object, whatever its strings hold.
    FUZZ_CHECK(!vrq_jsonText(object).empty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto decoded = vrq::base64Decode(text);
    std::optional<nlohmann::json> object;
    if (decoded) {
        FUZZ_CHECK(vrq::base64Decode(vrq::base64Encode(*decoded)) == decoded);
        object = vrq_dictionaryWithJsonObject(*decoded);
        if (object)
            checkSession(*object);
    }

    // The same text through the player, as a host starts a game with it.
    auto& session = FuzzSession::shared();
    const auto& player = session.player();
    player->setGameStatus(VRQGameStatusInited);
    const int answersBefore = session.client()->remoteSdps();
    VRQError error{"", kUntouched, "", {}};
    const bool started = player->startGameWithRemoteSession(text, &error);
    FuzzSession::runPendingMainTasks();

    const bool parsed = object && !object->empty();
    const auto remote = parsed ? VRQRemoteSession::fromDictionary(*object) : VRQRemoteSession{};
    // Started exactly when the object says success and carries an answer,
    // which then went to the RTC client.
    FUZZ_CHECK(started == (parsed && remote.code == 0 && !remote.sdp.empty()));
    FUZZ_CHECK(session.client()->remoteSdps() == answersBefore + (started ? 1 : 0));
    // Only a failure code comes back as an error.
    if (parsed && remote.code != 0)
        FUZZ_CHECK(error.domain == VRQGamePlayer::kErrorDomain && error.code == remote.code);
    else
        FUZZ_CHECK(error.code == kUntouched);
    return 0;
}
