#include "support/CapturingLogDelegate.h"
#include "support/TempHome.h"
#include "vrq/log/VRQLog.h"
#include "vrq/log/VRQLogManager.h"
#include "vrq/platform/services/UserDefaults.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace {

class VRQLogManagerTest : public ::testing::Test {
protected:
    void SetUp() override { manager.finitSDK(); }
    void TearDown() override
    {
        manager.setLogDelegate(nullptr, 2);
        manager.finitSDK();
    }

    static std::string readAll(const std::filesystem::path& directory)
    {
        std::string text;
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            std::ifstream in(entry.path());
            std::stringstream content;
            content << in.rdbuf();
            text += content.str();
        }
        return text;
    }

    VRQLogManager& manager = VRQLogManager::sharedManager();
    vrqtest::TempDir dir;
};

TEST_F(VRQLogManagerTest, LinesCarryThePrefixAndReachFileAndDelegateAtTheirLevels)
{
    vrqtest::CapturingLogDelegate delegate;
    manager.initSDK((dir.path() / "vrq_logs").string(), 1, 2);
    manager.setLogDelegate(&delegate, 2);
    const int line = __LINE__ + 1;
    VRQ_LOG(3, "value %d of %s", 7, "x");
    VRQ_LOG(1, "too quiet");
    vrqFlushLog();
    manager.finitSDK(); // closes the file

    const std::string expected = "(VRQLogManagerTest.cpp:" + std::to_string(line)
                                 + " {anonymous}::VRQLogManagerTest_LinesCarryThePrefixAndReachFileAndDelegateAtTheirLevels_Test::"
                                   "TestBody): value 7 of x";
    ASSERT_EQ(delegate.lines().size(), 1u);
    EXPECT_EQ(delegate.lines()[0], std::make_pair(3, expected));
    const std::string file = readAll(dir.path() / "vrq_logs");
    EXPECT_NE(file.find(expected), std::string::npos);
    EXPECT_EQ(file.find("too quiet"), std::string::npos);
}

TEST_F(VRQLogManagerTest, ASecondInitDoesNothingUntilFinit)
{
    vrqtest::CapturingLogDelegate first;
    vrqtest::CapturingLogDelegate second;
    manager.initSDK(&first, 0, nlohmann::json{{"trial", "on"}});
    manager.initSDK(&second, 0);
    manager.initSDK((dir.path() / "ignored").string(), 1, 0);
    VRQ_LOG(2, "once");
    EXPECT_TRUE(first.contains("once"));
    EXPECT_FALSE(second.contains("once"));
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "ignored"));
    EXPECT_EQ(manager.fieldTrials(), (nlohmann::json{{"trial", "on"}}));

    manager.finitSDK();
    EXPECT_FALSE(manager.hasInit());
    manager.initSDK((dir.path() / "again").string(), 1, 0);
    EXPECT_TRUE(manager.hasInit());
    EXPECT_TRUE(std::filesystem::exists(dir.path() / "again"));
}

TEST_F(VRQLogManagerTest, ReplacingTheDelegateKeepsOneLogger)
{
    vrqtest::CapturingLogDelegate first;
    vrqtest::CapturingLogDelegate second;
    manager.setLogDelegate(&first, 0);
    manager.setLogDelegate(&second, 0);
    VRQ_LOG(2, "after swap");
    EXPECT_FALSE(first.contains("after swap"));
    ASSERT_EQ(second.lines().size(), 1u) << "a second logger would deliver the line twice";
}

TEST_F(VRQLogManagerTest, DelegateKeepsWorkingWhenTheLogFolderCannotBeCreated)
{
    const auto blocker = dir.path() / "file";
    std::ofstream(blocker) << "not a folder";
    vrqtest::CapturingLogDelegate delegate;
    manager.initSDK((blocker / "vrq_logs").string(), VRQLogManager::kLogFileSize, 0);
    manager.setLogDelegate(&delegate, 0);
    VRQ_LOG(3, "still heard");
    EXPECT_TRUE(delegate.contains("still heard"));
}

TEST(UserDefaultsTest, ValuesSurviveANewInstanceOnTheSameFile)
{
    vrqtest::TempDir dir;
    const auto file = dir.path() / "sub" / "defaults.json";
    {
        vrq::UserDefaults defaults(file);
        EXPECT_TRUE(defaults.setObject("abc", "key"));
        EXPECT_TRUE(defaults.setObject(5, "n"));
    }
    vrq::UserDefaults reread(file);
    EXPECT_EQ(reread.stringForKey("key"), "abc");
    EXPECT_EQ(reread.stringForKey("n"), "") << "a number is not a string";
    EXPECT_EQ(reread.objectForKey("n"), nlohmann::json(5));
    EXPECT_FALSE(reread.objectForKey("missing"));
    for (const auto& entry : std::filesystem::directory_iterator(file.parent_path()))
        EXPECT_EQ(entry.path().filename(), "defaults.json") << "no temporary file is left behind";
}

} // namespace
