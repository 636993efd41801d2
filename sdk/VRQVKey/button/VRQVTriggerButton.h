#pragma once

#include "vrq/VRQVKey/button/VRQVNormalButton.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace vrq {
class SerialQueue;
class Timer;
} // namespace vrq

// A trigger ("trigger_lt_max", "trigger_rt_max"): a plain button whose value
// ramps up while held and down after release, by "damper_step" value units
// per millisecond up to "max_value". Every 50 ms of a ramp it sends
// {"type":"rt","x":V,"down":D} from its own serial queue, so its messages
// reach the container off the main thread. Touches arrive on the main thread.
class VRQVTriggerButton : public VRQVNormalButton {
public:
    static constexpr std::chrono::milliseconds kTickInterval{50};
    static constexpr std::chrono::milliseconds kTickLeeway{30};

    VRQVTriggerButton();
    ~VRQVTriggerButton() override;
    static std::shared_ptr<VRQVBaseButton> initWithModel(std::shared_ptr<VRQVBaseButtonModel> model);

    void updateWithModel(const std::shared_ptr<VRQVBaseButtonModel>& model) override;

    std::int32_t maxValue() const;
    float damperStep() const;
    std::int32_t damperValue() const;
    const std::optional<std::string>& keyType() const { return m_keyType; }
    bool isRamping() const;

protected:
    // Starts the ramp up (isDown) or down, from the value it stands at.
    void sendClickInstruction(bool isDown) override;

private:
    struct Ramp;

    std::optional<std::string> m_keyType;
    std::unique_ptr<vrq::SerialQueue> m_msgTimeQueue; // outlives the ramp's timer
    std::shared_ptr<Ramp> m_ramp;
};
