// The demo host, run as a person runs it: real sessions against the bundled
// reference server, each run on a loopback address of its own because the
// reconnect port is fixed.
#include "support/LoopbackAddress.h"
#include "support/LoopbackHttpServer.h"
#include "support/Shell.h"
#include "support/TempHome.h"

#include "MetricsIngest.h"
#include "vrq/platform/views/Image.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>

#ifdef VRQ_TOOL_vrq_play

namespace {

using Json = nlohmann::json;

struct PlayRun {
    int exitCode = -1;
    std::string output;
    std::vector<Json> events; // the JSON lines, in order
    double seconds = 0;

    std::vector<Json> named(const std::string& name) const
    {
        std::vector<Json> found;
        std::copy_if(events.begin(), events.end(), std::back_inserter(found),
                     [&](const Json& event) { return event["event"] == name; });
        return found;
    }
    Json summary() const
    {
        const auto all = named("summary");
        return all.empty() ? Json() : all.back()["data"];
    }
};

// Runs vrq-play to its end (it is bounded by its --duration), handing every
// JSON event to onEvent as soon as it is printed.
PlayRun play(const vrqtest::TempDir& home, const std::string& arguments,
             const std::function<void(const Json&)>& onEvent = nullptr, const std::string& environment = "")
{
    // As a person runs it: nothing in the environment restricts ICE; with its
    // bundled server the app keeps ICE on that loopback address itself.
    const std::string command = "env -u VRQ_ICE_ADDRESSES VRQ_HOME=" + vrqtest::shellQuote(home.path().string()) + " " + environment
                                + " " VRQ_TOOL_vrq_play " "
                                + arguments + " 2>/dev/null; echo exit=$?";
    PlayRun run;
    const auto start = std::chrono::steady_clock::now();
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
    if (!pipe)
        return run;
    char buffer[65536];
    while (std::fgets(buffer, sizeof buffer, pipe.get())) {
        const std::string line = buffer;
        run.output += line;
        if (line.rfind("exit=", 0) == 0)
            run.exitCode = std::stoi(line.substr(5));
        auto event = Json::parse(line, nullptr, false);
        if (!event.is_object() || !event.contains("event"))
            continue;
        if (onEvent)
            onEvent(event);
        run.events.push_back(std::move(event));
    }
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return run;
}

double maxOf(const std::vector<Json>& samples, const char* field)
{
    double best = 0;
    for (const auto& sample : samples)
        best = std::max(best, sample["data"].value(field, 0.0));
    return best;
}

std::string readFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

// A fault control of the bundled server, which runs inside vrq-play.
bool control(const std::string& origin, const std::string& target)
{
    httplib::Client client(origin);
    const auto response = client.Post(target.c_str());
    return response && response->status == 200;
}

} // namespace

TEST(PlayTest, PlaysASessionAndTheServerReceivesEveryKindOfInput)
{
    vrqtest::TempDir home;
    const auto snapshot = home.path() / "frame.png";
    const PlayRun run = play(home, "--duration 4 --autoplay --events json --host " + vrqtest::loopbackAddress() + " --snapshot "
                                       + vrqtest::shellQuote(snapshot.string()));
    ASSERT_EQ(run.exitCode, 0) << run.output;

    EXPECT_EQ(run.named("first_frame").size(), 1u) << run.output;
    const auto stats = run.named("stats");
    EXPECT_GE(stats.size(), 3u) << "one sample a second and one at the end";
    EXPECT_GT(maxOf(stats, "fps"), 0) << run.output;
    EXPECT_GT(maxOf(stats, "rtt_ms"), 0) << "no round trip was ever measured";
    EXPECT_GT(maxOf(stats, "packets_received"), 0);
    EXPECT_TRUE(std::any_of(stats.begin(), stats.end(), [](const auto& s) { return s["data"]["frame"] == "640x360"; }));
    EXPECT_TRUE(run.named("failure").empty()) << run.output;

    const auto summary = run.summary();
    ASSERT_TRUE(summary.is_object()) << run.output;
    EXPECT_EQ(summary["ok"], true);
    EXPECT_EQ(summary["ingest"]["all_signed"], true);
    EXPECT_GT(summary["ingest"]["metric_records"].get<int>(), 0);

    // One round of the tour, as the game server's channel logs recorded it.
    const auto& inputs = summary["inputs"];
    std::printf("server inputs: %s\n", inputs.dump().c_str());
    const std::pair<const char*, int> kmAtLeast[] = {
        {"keyboard", 4},     {"mousemove_v2", 1},  {"mouseright", 2}, {"mousemiddle", 2},
        {"mousescroll", 1},  {"gamepadconnect", 1}, {"gamepadkey", 6}, {"axisleft", 2},
        {"axisright", 2},    {"mousedeltamove_v2", 1}};
    for (const auto& [type, count] : kmAtLeast)
        EXPECT_GE(inputs["km"].value(type, 0), count) << "km " << type;
    // The on-screen gamepad's touches: a face button and the pad, both sticks
    // (a move and the return series each) and the trigger.
    const std::pair<const char*, int> keySequenceAtLeast[] = {{"gamepadkey", 7}, {"axisleft", 4}, {"axisright", 4}, {"rt", 1}};
    for (const auto& [type, count] : keySequenceAtLeast)
        EXPECT_GE(inputs["key_seq"].value(type, 0), count) << "key_seq " << type;
    const std::pair<const char*, int> ackAtLeast[] = {{"mouseleft", 2}, {"capslock_state", 1}, {"paste", 1}, {"set_cursor", 1}};
    for (const auto& [type, count] : ackAtLeast)
        EXPECT_GE(inputs["ack"].value(type, 0), count) << "ack " << type;

    // The server toggles caps lock on each key-down: the one press before the query makes it upper case.
    const auto replies = run.named("input_reply");
    auto replyTo = [&](const std::string& step) {
        const auto found = std::find_if(replies.begin(), replies.end(), [&](const auto& r) { return r["data"]["step"] == step; });
        return found == replies.end() ? Json() : (*found)["data"]["result"];
    };
    EXPECT_EQ(replyTo("paste"), 0) << run.output;
    EXPECT_EQ(replyTo("caps lock query"), 1) << "1: upper case" << run.output;

    const auto image = vrq::Image::decode(readFile(snapshot));
    ASSERT_TRUE(image.has_value()) << "the snapshot is not a readable PNG";
    EXPECT_EQ(image->width(), 640);
    EXPECT_EQ(image->height(), 360);
    // The scene is a white ball and white-on-black text on black, all grey:
    // wrong planes, strides or colour factors would show as colour or noise.
    int dark = 0, white = 0, coloured = 0;
    const auto& rgba = image->rgba();
    for (std::size_t i = 0; i + 3 < rgba.size(); i += 4) {
        const auto [low, high] = std::minmax({rgba[i], rgba[i + 1], rgba[i + 2]});
        dark += high <= 24 ? 1 : 0;
        white += low >= 220 ? 1 : 0;
        coloured += high - low > 40 ? 1 : 0;
    }
    EXPECT_GT(dark, 640 * 360 * 8 / 10);
    EXPECT_GT(white, 50) << "the ball";
    EXPECT_LT(coloured, 640 * 360 / 200);
}

TEST(PlayTest, StartsThroughAnExperienceCodeAndSpeaksPlainText)
{
    vrqtest::TempDir home;
    const PlayRun run = play(home, "--duration 5 --host " + vrqtest::loopbackAddress() + " --experience-code play-test-7");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("\nexperience code: offer registered under play-test-7"), std::string::npos) << run.output;
    EXPECT_EQ(run.output.find("remote session:"), std::string::npos) << "the session came through the code, not /session";
    EXPECT_NE(run.output.find("\nfirst frame: "), std::string::npos);
    EXPECT_NE(run.output.find("\nstats: "), std::string::npos);
    EXPECT_NE(run.output.find("\nsummary: played"), std::string::npos);
}

TEST(PlayTest, PrintsAReconnectAsItHappensAndEndsEarlyWithTheFailureThatFollows)
{
    vrqtest::TempDir home;
    std::string origin;
    int drops = 0;
    int samplesSinceVideo = -1;
    // The player learns the session's token, which its reconnect request
    // needs, from heartbeat replies: each loss waits for two statistics
    // samples (two heartbeats) of the connection.
    auto dueToDrop = [&](const Json& event) {
        if (event["event"] == "first_frame" || event["event"] == "video_show")
            samplesSinceVideo = 0;
        else if (event["event"] == "stats" && samplesSinceVideo >= 0)
            ++samplesSinceVideo;
        return samplesSinceVideo == 2;
    };
    const PlayRun run = play(home, "--duration 25 --events json --host " + vrqtest::loopbackAddress(), [&](const Json& event) {
        if (event["event"] == "back_end")
            origin = event["data"]["origin"];
        if (!dueToDrop(event))
            return;
        samplesSinceVideo = -1;
        // The player reconnects, and its reconnect is refused.
        control(origin, "/control/answers?mode=refuse");
        drops += control(origin, "/control/drop");
    });
    ASSERT_EQ(drops, 1) << run.output;
    EXPECT_EQ(run.exitCode, 1) << run.output;
    EXPECT_EQ(run.named("reconnecting").size(), 1u) << run.output;
    ASSERT_EQ(run.named("failure").size(), 1u) << run.output;
    const auto summary = run.summary();
    EXPECT_EQ(summary["played"], true);
    EXPECT_EQ(summary["video_shows"], 1);
    EXPECT_NE(summary.value("reason", std::string()).find(run.named("failure")[0]["data"]["code"].dump()), std::string::npos)
        << "the reason names the failure's code: " << run.output;
    EXPECT_LT(run.seconds, 24) << "a failed session ends the run before its time";
}

TEST(PlayTest, SendsSignedUploadsToTheMetricsServiceItIsGiven)
{
    vrqtest::TempDir home;
    vrqtest::LoopbackHttpServer metrics;
    const PlayRun run = play(home, "--duration 5 --events json --host " + vrqtest::loopbackAddress() + " --metrics " + metrics.origin());
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_EQ(run.summary()["ingest"]["bulks"], 0) << "nothing went to the bundled server";
    const auto bulks = metrics.requestsTo("/report_metric_bulk");
    ASSERT_FALSE(bulks.empty());
    for (const auto& bulk : bulks)
        EXPECT_EQ(bulk.query, "sig=" + vrqserver::MetricsIngest::signatureFor("vrq-reference-metric-key", bulk.body))
            << "signed with the key of the remote session";
}

TEST(PlayTest, ExitsWithAReasonWhenItCannotPlay)
{
    vrqtest::TempDir home;

    const PlayRun badArgument = play(home, "--duration soon");
    EXPECT_EQ(badArgument.exitCode, 2) << badArgument.output;

    // Another server already holds the reconnect port on this address.
    const std::string taken = vrqtest::loopbackAddress();
    vrqtest::LoopbackHttpServer squatter(taken, 7392);
    ASSERT_TRUE(squatter.valid());
    const PlayRun portTaken = play(home, "--duration 2 --events json --host " + taken);
    EXPECT_EQ(portTaken.exitCode, 1);
    const auto errors = portTaken.named("error");
    ASSERT_EQ(errors.size(), 1u) << portTaken.output;
    EXPECT_NE(errors[0]["data"]["reason"].get<std::string>().find(taken + ":7392"), std::string::npos);
    EXPECT_TRUE(portTaken.named("client_session").empty()) << "it must stop before making a session";

    // A back end that cannot serve a session.
    vrqtest::LoopbackHttpServer backEnd;
    backEnd.setHandler("/session", [](const auto&, auto& response) {
        response.status = 503;
        response.set_content("no game server free", "text/plain");
    });
    const PlayRun refused = play(home, "--duration 5 --events json --server " + backEnd.origin());
    EXPECT_EQ(refused.exitCode, 1) << refused.output;
    EXPECT_EQ(backEnd.requestsTo("/session").size(), 1u);
    const auto summary = refused.summary();
    EXPECT_EQ(summary["played"], false);
    EXPECT_NE(summary.value("reason", std::string()).find("HTTP 503"), std::string::npos) << refused.output;

    // A machine without an H.264 decoder: GStreamer sees every installed
    // plugin but the two that decode H.264, and the player's first offer
    // fails with the package to install. (The bundled server refuses such an
    // engine, so the back end here is the test's own.)
    const auto plugins = home.path() / "plugins";
    std::filesystem::create_directories(plugins);
    const std::filesystem::path installed = GST_PLUGINS_DIR;
    for (const auto& plugin : std::filesystem::directory_iterator(installed)) {
        const std::string name = plugin.path().filename().string();
        if (name != "libgstlibav.so" && name != "libgstopenh264.so")
            std::filesystem::create_symlink(plugin.path(), plugins / name);
    }
    const std::string withoutDecoder = "GST_PLUGIN_SYSTEM_PATH_1_0=" + vrqtest::shellQuote(plugins.string())
                                       + " GST_REGISTRY_1_0=" + vrqtest::shellQuote((home.path() / "registry.bin").string());
    const PlayRun noDecoder = play(home, "--duration 5 --events json --server " + backEnd.origin(), nullptr, withoutDecoder);
    EXPECT_EQ(noDecoder.exitCode, 1) << noDecoder.output;
    const auto initFailures = noDecoder.named("init_failure");
    ASSERT_EQ(initFailures.size(), 1u) << noDecoder.output;
    EXPECT_EQ(initFailures[0]["data"]["code"], 10001);
    EXPECT_NE(initFailures[0]["data"]["message"].get<std::string>().find("gstreamer1.0-libav"), std::string::npos)
        << noDecoder.output;
    EXPECT_LT(noDecoder.seconds, 4.0) << "the failure comes at once, not at the end of the run";
    EXPECT_EQ(backEnd.requestsTo("/session").size(), 1u) << "no session is asked for without an offer";
}

#endif
