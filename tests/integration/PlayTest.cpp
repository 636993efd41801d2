// The demo host, run as a person runs it, against the bundled metrics service.
#include "support/Shell.h"
#include "support/TempHome.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

#ifdef VRQ_TOOL_vrq_play

TEST(PlayTest, PlaysAMonitoredSessionAndItsUploadsArriveSigned)
{
    vrqtest::TempDir home;
    const std::string output = vrqtest::runCommand("VRQ_HOME=" + vrqtest::shellQuote(home.path().string()) + " "
                                                   VRQ_TOOL_vrq_play " --duration 2 --events json 2>/dev/null; echo exit=$?");
    EXPECT_NE(output.find("exit=0"), std::string::npos) << output;

    std::istringstream lines(output);
    std::string line;
    int heartbeats = 0;
    nlohmann::json summary;
    while (std::getline(lines, line)) {
        const auto event = nlohmann::json::parse(line, nullptr, false);
        if (!event.is_object())
            continue;
        heartbeats += event["event"] == "heartbeat";
        if (event["event"] == "stopped")
            summary = event["data"];
    }
    EXPECT_EQ(heartbeats, 2);
    ASSERT_TRUE(summary.is_object()) << output;
    EXPECT_GE(summary["metric_records"].get<int>(), 4) << "session, connect, samples and stop records";
    EXPECT_EQ(summary["rejected_bulks"], 0);
    EXPECT_TRUE(std::filesystem::exists(home.path() / "Documents" / "vrq_logs"));
}

#endif
