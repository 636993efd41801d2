// Session descriptions: the inspection of an offer (Plan B, the H.264
// payload type and profile) and the engine's own edits and checks of
// session-description text.
#include "FuzzCheck.h"

#include "vrq/platform/engine/RtcSdpText_p.h"
#include "vrq/rtc/VRQWebrtcClient.h"

#include <cstddef>
#include <cstdint>
#include <string>

using vrq::rtc::SdpText;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string sdp(reinterpret_cast<const char*>(data), size);

    (void)VRQWebrtClient::isPlanBSdp(sdp);
    std::string profile = "unset";
    int payloadType = -1;
    VRQWebrtClient::h264InfoFromSdp(sdp, profile, payloadType);
    FUZZ_CHECK(payloadType >= 0);
    // A profile found is the parameter list of an fmtp line, with its profile-level-id.
    if (!profile.empty())
        FUZZ_CHECK(profile.find("profile-level-id=") != std::string::npos && sdp.find(" " + profile) != std::string::npos);
    else
        FUZZ_CHECK(payloadType == 0);

    // Lines joined and split again are the same lines.
    const auto lines = SdpText::lines(sdp);
    FUZZ_CHECK(SdpText::lines(SdpText::join(lines)) == lines);
    const auto kinds = SdpText::mediaKinds(sdp);
    const bool wellFormed = SdpText::isWellFormed(sdp);

    // The edits keep the sections and the form, and a second pass changes nothing.
    const std::string indexed = SdpText::withIndexMids(sdp);
    FUZZ_CHECK(SdpText::mediaKinds(indexed) == kinds);
    FUZZ_CHECK(SdpText::isWellFormed(indexed) == wellFormed);
    FUZZ_CHECK(SdpText::withIndexMids(indexed) == indexed);
    const std::string reordered = SdpText::withProfileLevelIdLast(indexed);
    FUZZ_CHECK(SdpText::mediaKinds(reordered) == kinds);
    FUZZ_CHECK(SdpText::withProfileLevelIdLast(reordered) == reordered);
    const std::string signed_ = SdpText::withFingerprint(reordered, "sha-256 00:11");
    FUZZ_CHECK(SdpText::lines(signed_).size() == SdpText::lines(reordered).size());

    (void)SdpText::payloadType(sdp, "video", "H264");
    (void)SdpText::payloadType(sdp, "audio", "OPUS");
    return 0;
}
