// Video from the reference server over a link that loses and delays packets,
// set over HTTP as a person would: the receiver asks for the lost packets,
// the server retransmits them and the picture keeps coming.
#include "ServedClient.h"
#include "support/LoopbackAddress.h"

#include <gtest/gtest.h>

using vrqtest::rtc::waitUntil;
using namespace std::chrono_literals;

namespace {

long long figure(const std::map<std::string, std::string>& values, const char* key)
{
    const auto found = values.find(key);
    return found == values.end() ? -1 : std::stoll(found->second);
}

} // namespace

TEST(LossyLinkTest, LostVideoPacketsAreAskedForAndRetransmittedWhileFramesKeepComing)
{
    vrqtest::ServedClient served;
    vrqserver::ReferenceServer::Options options;
    options.host = vrqtest::loopbackAddress();
    ASSERT_EQ(served.start(options), std::nullopt);
    auto& client = served.client();
    ASSERT_TRUE(waitUntil([&] { return client.frames().count() >= 10; })) << "video before the loss";
    const auto session = served.session();
    ASSERT_TRUE(session);

    ASSERT_EQ(served.post("/control/link?loss=0.05&delay_ms=30&jitter_ms=10&seed=7").first, 200);
    const auto before = session->linkCounts();
    const int framesBefore = client.frames().count();
    // A few seconds of video: enough lost packets that a few are lost twice.
    ASSERT_TRUE(waitUntil([&] { return session->linkCounts().lost - before.lost >= 40; }, 20s))
        << session->linkCounts().lost - before.lost << " packets lost";
    const auto after = session->linkCounts();
    const int decoded = client.frames().count() - framesBefore;
    const auto sent = static_cast<double>(after.frames - before.frames);

    EXPECT_GT(after.retransmissions, before.retransmissions) << "the server retransmitted";
    const auto video = client.videoStatistics();
    ASSERT_TRUE(video);
    EXPECT_GT(figure(*video, "googNacksSent"), 0);
    EXPECT_GT(figure(*video, "packetsRetransmittedReceived"), 0);
    std::string figures;
    for (const auto& [key, value] : *video)
        figures += " " + key + "=" + value;
    // Unrecovered, about half the frames are lost at this rate: a loss costs
    // the frames up to the next key frame.
    EXPECT_GE(decoded, 0.75 * sent) << decoded << " of " << sent << " frames decoded; on the wire " << after.packets - before.packets << " packets, "
        << after.retransmissions - before.retransmissions << " retransmissions, " << after.lost - before.lost
        << " lost; the kit's figures:" << figures;
}
