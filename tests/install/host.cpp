// A host that uses the kit as an application would: through the installed
// headers and libraries only.
#include <vrq/core/VRQGamePlayer.h>
#include <vrq/core/VRQGamePlayerDelegate.h>
#include <vrq/utils/VRQDigest.h>
#include <vrq/utils/VRQSDKVersion.h>

#include <cstdio>

class Host : public VRQGamePlayerDelegate {
public:
    void onInitSuccess(const std::string&) override {}
    void onInitFailure(int, const VRQError&) override {}
    void onConnectionFailure(int, const std::optional<VRQError>&) override {}
    void onStartReConnectWithReason(int) override {}
    void onVideoShow() override {}
    void onVideoSizeChanged(vrq::Size) override {}
};

int main(int argc, char**)
{
    // Taking the player's factory links the whole kit and its engine.
    auto create = &VRQGamePlayer::create;
    if (argc > 1)
        create(nlohmann::json::object(), std::weak_ptr<Host>(), nullptr);
    std::printf("%s %s\n", VRQSDKVersion, vrq_md5("abc").c_str());
    return 0;
}
