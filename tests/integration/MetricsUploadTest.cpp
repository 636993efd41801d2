// Metric and log bulks, signed and posted to a real HTTP server on loopback.
#include "support/CapturingLogDelegate.h"
#include "support/LoopbackHttpServer.h"
#include "support/Shell.h"
#include "support/TempHome.h"
#include "vrq/log/VRQLog.h"
#include "vrq/log/VRQLogManager.h"
#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/utils/VRQHttpHelper.h"
#include "vrq/utils/VRQRemoteSession.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace std::chrono_literals;
using nlohmann::json;

namespace {

// HMAC-SHA256 computed by the openssl command, over at most the first 128
// bytes of the body and never past a zero byte.
std::string opensslSignature(const std::string& key, const std::string& body)
{
    vrqtest::TempDir dir;
    const auto file = dir.path() / "signed";
    std::ofstream(file, std::ios::binary) << body.substr(0, std::min(body.find('\0'), std::size_t(128)));
    const std::string out = vrqtest::runCommand("openssl dgst -sha256 -r -hmac " + vrqtest::shellQuote(key) + " "
                                                + vrqtest::shellQuote(file.string()));
    return out.substr(0, out.find(' '));
}

std::string sigOf(const vrqtest::RecordedRequest& request)
{
    const auto at = request.query.find("sig=");
    return at == std::string::npos ? std::string() : request.query.substr(at + 4);
}

class MetricsUploadTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        VRQLogManager::sharedManager().setLogDelegate(&m_log, 0);
        VRQHttpHelper::setBaseHost(m_server.origin());
        VRQHttpHelper::setMetricSigKey(kKey);
    }
    void TearDown() override
    {
        VRQLogManager::sharedManager().setLogDelegate(nullptr, 2);
        VRQHttpHelper::setMetricSigKey("");
    }

    static constexpr const char* kKey = "metric-key-0451";
    vrqtest::TempHome m_home;
    vrqtest::LoopbackHttpServer m_server;
    vrqtest::CapturingLogDelegate m_log;
};

TEST_F(MetricsUploadTest, ThreeLogLinesPostOneSignedBatchOfThree)
{
    vrqLogReset(VRQRemoteSession::fromDictionary({{"request_id", "req-1"}, {"server_ip", "127.0.0.9"}, {"user_id", "u1"}}));
    vrqUploadLog("first");
    vrqUploadLog("second");
    vrqUploadLog("third");
    vrqUploadLog("four\xfft\xc3h"); // a line may show outside bytes that are not UTF-8
    ASSERT_TRUE(m_server.waitForRequests("/report_log_bulk", 1, 5s));
    vrqFlushLog();
    ASSERT_TRUE(m_server.waitForRequests("/report_log_bulk", 2, 5s));

    const auto posts = m_server.requestsTo("/report_log_bulk");
    ASSERT_EQ(posts.size(), 2u);
    const json first = json::parse(posts[0].body);
    EXPECT_EQ(first["metric"], "cg_client_log");
    ASSERT_EQ(first["bulk"].size(), 3u);
    EXPECT_EQ(first["bulk"][0]["content"], "first");
    EXPECT_EQ(first["bulk"][2]["content"], "third");
    const json& record = first["bulk"][0];
    EXPECT_EQ(record["request_id"], "req-1");
    EXPECT_EQ(record["server_ip"], "127.0.0.9");
    EXPECT_EQ(record["user_id"], "u1");
    EXPECT_EQ(record["device_id"], VRQSDKMonitor::vrqDeviceID());
    EXPECT_TRUE(record["timestamp"].is_number_integer());
    const json last = json::parse(posts[1].body)["bulk"];
    ASSERT_EQ(last.size(), 1u) << "the flush posts what was left";
    EXPECT_EQ(last[0]["content"], "four\ufffdt\ufffdh");

    EXPECT_EQ(posts[0].contentType, "application/json");
    EXPECT_EQ(sigOf(posts[0]), opensslSignature(kKey, posts[0].body));
    EXPECT_EQ(sigOf(posts[1]), opensslSignature(kKey, posts[1].body));
}

TEST_F(MetricsUploadTest, TenRecordsPostOneBatchOfTenInOrder)
{
    auto& monitor = VRQSDKMonitor::sharedInstance();
    for (int i = 0; i < 11; ++i)
        monitor.appendReport({{"n", i}});
    ASSERT_TRUE(m_server.waitForRequests("/report_metric_bulk", 1, 5s));
    monitor.sendReport();
    ASSERT_TRUE(m_server.waitForRequests("/report_metric_bulk", 2, 5s));

    const auto posts = m_server.requestsTo("/report_metric_bulk");
    const json first = json::parse(posts[0].body);
    EXPECT_EQ(first["metric"], "cg_client_stat");
    ASSERT_EQ(first["bulk"].size(), 10u);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(first["bulk"][static_cast<std::size_t>(i)]["n"], i);
    EXPECT_EQ(json::parse(posts[1].body)["bulk"], json::parse(R"([{"n":10}])"));
    EXPECT_EQ(sigOf(posts[0]), opensslSignature(kKey, posts[0].body));
}

TEST_F(MetricsUploadTest, WithoutAKeyNothingIsSentAndTheDropIsLogged)
{
    VRQHttpHelper::setMetricSigKey("");
    VRQHttpHelper::postMetricReports({{"metric", "cg_client_stat"}, {"bulk", json::array({{{"n", 1}}})}});
    VRQHttpHelper::postMetricLogs({{"metric", "cg_client_log"}, {"bulk", json::array({{{"n", 1}}})}});
    // A request posted afterwards arrives; had the bulks been sent, they would have arrived first.
    VRQHttpHelper::asyncRquestPost(m_server.origin() + "/marker", json{{"m", 1}});
    ASSERT_TRUE(m_server.waitForRequests("/marker", 1, 5s));
    EXPECT_EQ(m_server.requests().size(), 1u);
    EXPECT_TRUE(m_log.contains("Post exit no sig key: url:" + m_server.origin() + "/report_metric_bulk"));
    EXPECT_TRUE(m_log.contains("Post exit no sig key: url:" + m_server.origin() + "/report_log_bulk"));
}

TEST_F(MetricsUploadTest, UnreachableEndpointGivesAnErrorAndALogLine)
{
    int port = 0;
    {
        vrqtest::LoopbackHttpServer gone;
        port = gone.port();
    }
    const std::string url = "http://127.0.0.1:" + std::to_string(port) + "/report";
    bool done = false;
    std::optional<VRQError> error;
    VRQHttpHelper::asyncRquestPost(url, json{{"a", 1}}, [&](auto e, std::string) {
        error = e;
        done = true;
    });
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return done; }, 5s));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, "VRQHttpTransport");
    EXPECT_TRUE(vrq::runMainLoopUntil([&] { return m_log.contains("post url:" + url + " failed:"); }, 2s));
}

TEST_F(MetricsUploadTest, ExperienceSessionPostsTheCallersBody)
{
    VRQHttpHelper::setExperienceSessionOrigin(m_server.origin());
    m_server.setHandler("/CreateExperienceSession", [](const auto&, auto& response) {
        response.set_content(R"({"Code":0,"ServerSession":"abc"})", "application/json");
    });
    std::string answer;
    VRQHttpHelper::createExperienceSession({{"experience_code", "X1"}}, [&](auto, std::string body) { answer = body; });
    ASSERT_TRUE(vrq::runMainLoopUntil([&] { return !answer.empty(); }, 5s));
    EXPECT_EQ(json::parse(answer)["ServerSession"], "abc");
    const auto posts = m_server.requestsTo("/CreateExperienceSession");
    ASSERT_EQ(posts.size(), 1u);
    EXPECT_EQ(json::parse(posts[0].body), (json{{"experience_code", "X1"}}));
    EXPECT_TRUE(posts[0].query.empty()) << "the experience request is not signed";
}

} // namespace
