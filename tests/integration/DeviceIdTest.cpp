#include "support/Shell.h"
#include "support/TempHome.h"

#include <gtest/gtest.h>

namespace {

std::string deviceIdIn(const std::filesystem::path& home)
{
    return vrqtest::runCommand("VRQ_HOME=" + vrqtest::shellQuote(home.string()) + " " VRQ_TOOL_vrq_print_device_id);
}

TEST(DeviceIdTest, SurvivesARestartOfTheProcessAndDiffersPerHome)
{
    vrqtest::TempDir home;
    const std::string first = deviceIdIn(home.path());
    const std::string second = deviceIdIn(home.path());
    EXPECT_EQ(first.size(), 37u) << "a UUID and a line break: " << first;
    EXPECT_EQ(first, second);

    vrqtest::TempDir otherHome;
    EXPECT_NE(deviceIdIn(otherHome.path()), first);
}

} // namespace
