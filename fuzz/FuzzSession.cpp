#include "FuzzSession.h"

#include "vrq/core/VRQGamePlayerDelegate.h"
#include "vrq/utils/VRQHttpHelper.h"

#include <glib.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

class QuietPlayerDelegate : public VRQGamePlayerDelegate {
public:
    void onInitSuccess(const std::string&) override {}
    void onInitFailure(int, const VRQError&) override {}
    void onConnectionFailure(int, const std::optional<VRQError>&) override {}
    void onStartReConnectWithReason(int) override {}
    void onVideoShow() override {}
    void onVideoSizeChanged(vrq::Size) override {}
};

class QuietChannelDelegate : public VRQCustomTransChannelDelegate {};

// The kit keeps its settings and logs under $VRQ_HOME: a scratch folder of
// this process unless the caller chose one.
void useScratchHome()
{
    if (std::getenv("VRQ_HOME"))
        return;
    std::string pattern = (std::filesystem::temp_directory_path() / "vrq-fuzz-XXXXXX").string();
    if (const char* folder = g_mkdtemp(pattern.data()))
        setenv("VRQ_HOME", folder, 1);
}

} // namespace

FuzzSession& FuzzSession::shared()
{
    // Never destroyed: the kit's own singletons may still use it at exit.
    static FuzzSession* session = new FuzzSession();
    return *session;
}

FuzzSession::FuzzSession()
{
    useScratchHome();
    // Nothing listens on the discard port of loopback: uploads fail at once.
    VRQHttpHelper::setBaseHost("http://127.0.0.1:9");
    VRQHttpHelper::setExperienceSessionOrigin("http://127.0.0.1:9");
    static auto delegate = std::make_shared<QuietPlayerDelegate>();
    m_player = VRQGamePlayer::create(nlohmann::json::object(), delegate,
                                     [this](const nlohmann::json&, VRQSdkRtcDelegate* rtcDelegate) {
                                         m_client = FuzzRtcClient::create(rtcDelegate);
                                         return m_client;
                                     });
    m_channelDelegate = std::make_shared<QuietChannelDelegate>();
    m_customChannel = m_player->openCustomTransChannel(4000, m_channelDelegate);
}

void FuzzSession::runPendingMainTasks()
{
    // Bounded: a task that posts another is run at the next input.
    for (int i = 0; i < 64 && g_main_context_iteration(nullptr, FALSE); ++i) {
    }
}
