// A host that uses the kit as an application would: through the installed
// headers and libraries only.
#include <vrq/VRQVKey/button/VRQVGamepadUtil.h>
#include <vrq/core/VRQGamePlayer.h>
#include <vrq/core/VRQGamePlayerDelegate.h>
#include <vrq/platform/views/Image.h>
#include <vrq/utils/VRQDigest.h>
#include <vrq/utils/VRQSDKVersion.h>

#include <cstdio>
#include <string>

class Host : public VRQGamePlayerDelegate {
public:
    void onInitSuccess(const std::string&) override {}
    void onInitFailure(int, const VRQError&) override {}
    void onConnectionFailure(int, const std::optional<VRQError>&) override {}
    void onStartReConnectWithReason(int) override {}
    void onVideoShow() override {}
    void onVideoSizeChanged(vrq::Size) override {}
};

int main(int argc, char** argv)
{
    // Where the gamepad's images were found, and one of them decoded.
    if (argc > 1 && std::string(argv[1]) == "images") {
        const auto image = VRQVGamepadUtil::loadImageFromFile("a");
        std::printf("%s %dx%d\n", VRQVGamepadUtil::imageFolder().c_str(), image ? image->width() : 0,
                    image ? image->height() : 0);
        return image ? 0 : 1;
    }
    // Taking the player's factory links the whole kit and its engine.
    auto create = &VRQGamePlayer::create;
    if (argc > 1)
        create(nlohmann::json::object(), std::weak_ptr<Host>(), nullptr);
    std::printf("%s %s\n", VRQSDKVersion, vrq_md5("abc").c_str());
    return 0;
}
