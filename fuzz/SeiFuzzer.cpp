// A video SEI payload as the decoder hands it over, and the round-trip
// detection reply it may carry, evaluated by the monitor; and the SEI unit
// the engine writes around such a payload.
#include "FuzzCheck.h"

#include "vrq/monitor/VRQSDKMonitor.h"
#include "vrq/monitor/VRQSDKReport.h"
#include "vrq/platform/engine/RtcSeiMessage_p.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/rtc/VRQWebrtcClient.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace {

// Detection replies go to the monitor on the shared pool; counting markers
// posted after them keeps the pool's backlog bounded when the fuzzer runs
// ahead of it.
std::atomic<int> gOutstanding{0};
constexpr int kMaxOutstanding = 256;

// The unit's bytes after the start code with the emulation-prevention bytes
// taken out; checks that no start code can be seen inside it.
std::vector<std::uint8_t> unescaped(const std::vector<std::uint8_t>& unit)
{
    std::vector<std::uint8_t> bytes;
    int zeros = 0;
    for (std::size_t i = 4; i < unit.size(); ++i) {
        const std::uint8_t byte = unit[i];
        FUZZ_CHECK(!(zeros >= 2 && byte < 3));
        if (zeros >= 2 && byte == 3) {
            zeros = 0;
            continue;
        }
        zeros = byte == 0 ? zeros + 1 : 0;
        bytes.push_back(byte);
    }
    return bytes;
}

void checkWrittenUnit(const std::string& payload)
{
    const auto& uuid = vrq::rtc::SeiMessage::engineUuid();
    const auto unit = vrq::rtc::SeiMessage::userDataUnregistered(uuid, payload);
    FUZZ_CHECK(unit.size() >= 4 && unit[0] == 0 && unit[1] == 0 && unit[2] == 0 && unit[3] == 1);
    const auto bytes = unescaped(unit);
    // NAL header, payload type, size, UUID, the payload and the stop bit.
    std::vector<std::uint8_t> tail(uuid.begin(), uuid.end());
    tail.insert(tail.end(), payload.begin(), payload.end());
    tail.push_back(0x80);
    FUZZ_CHECK(bytes.size() >= tail.size() + 3 && bytes[0] == 0x06 && bytes[1] == 0x05);
    FUZZ_CHECK(std::equal(tail.begin(), tail.end(), bytes.end() - static_cast<std::ptrdiff_t>(tail.size())));
    std::size_t size = 0;
    std::size_t at = 2;
    while (at + 1 < bytes.size() && bytes[at] == 0xFF)
        size += bytes[at++];
    size += bytes[at++];
    FUZZ_CHECK(size == uuid.size() + payload.size() && at + tail.size() == bytes.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    // The evaluation itself, here and now, of the text the decoder's entry
    // point passes on, so that a reply that breaks it is caught with its input.
    auto& monitor = VRQSDKMonitor::sharedInstance();
    if (const auto reply = VRQWebrtClient::seiDetection(data, size)) {
        monitor.updateTotalTrans(*reply);
    } else if (gOutstanding.load() == 0) {
        // A text that is not a detection reply leaves the measured time as it was.
        const auto before = monitor.currentSDKReport().totalTransMS();
        monitor.updateTotalTrans(text);
        FUZZ_CHECK(monitor.currentSDKReport().totalTransMS() == before);
    }

    // Then through the decoder's entry point, which evaluates a detection
    // reply again on the pool.
    VRQWebrtClient::onSEIData(data, size);
    if (text.find("rtt_detect") != std::string::npos) {
        ++gOutstanding;
        vrq::dispatchGlobalAsync([] { --gOutstanding; });
        while (gOutstanding.load() > kMaxOutstanding)
            std::this_thread::yield();
    }
    checkWrittenUnit(text);
    return 0;
}
