#include "vrq/VRQVKey/button/VRQVTriggerButton.h"

#include "vrq/VRQVKey/button/model/VRQVTriggerButtonModel.h"
#include "vrq/platform/dispatch/MainLoop.h"
#include "vrq/platform/dispatch/SerialQueue.h"
#include "vrq/platform/dispatch/Timer.h"
#include "vrq/utils/VRQLayoutHelpers.h"

#include <cmath>
#include <cstdio>
#include <limits>

// What a tick needs, shared with the timer, which holds it weakly: a tick
// never keeps the button, a view, alive off the main thread.
struct VRQVTriggerButton::Ramp {
    std::atomic<std::int32_t> maxValue{0};
    std::atomic<float> damperStep{0};
    std::atomic<std::int32_t> damperValue{0};
    std::atomic<std::int64_t> lastTriggerTimeMs{0};
    std::string keyType; // set on the main thread while no timer runs

    std::mutex mutex; // guards the members below
    std::shared_ptr<vrq::Timer> msgTimer;
    std::weak_ptr<VRQVBaseButtonDelegate> sender;

    void cancel()
    {
        std::shared_ptr<vrq::Timer> timer;
        {
            std::lock_guard lock(mutex);
            timer = std::move(msgTimer);
        }
        if (timer)
            timer->cancel();
    }

    // One step of the ramp; false once it has reached its end.
    bool tick(bool isDown)
    {
        const std::int64_t now = vrq::nowMs();
        const float sign = isDown ? 1.0F : -1.0F;
        const float moved = static_cast<float>(damperValue.load()) +
                            static_cast<float>(now - lastTriggerTimeMs.load()) * damperStep.load() * sign;
        // Held to the 32-bit range before the cast; NaN counts as 0.
        const float held = std::isnan(moved) ? 0.0F : std::fmax(std::fmin(moved, 2147483520.0F), -2147483520.0F);
        std::int32_t value = std::min(static_cast<std::int32_t>(std::trunc(held)), maxValue.load());
        if (value < 1)
            value = 0;
        damperValue = value;
        const int down = !isDown && value == 0 ? 0 : 1;
        char text[96];
        std::snprintf(text, sizeof text, "{\"type\":\"%s\",\"x\":%d,\"down\":%d}", keyType.c_str(), value, down);
        send(text);
        lastTriggerTimeMs = now;
        return !((isDown && value == maxValue.load()) || (!isDown && value == 0));
    }

    void send(std::string text)
    {
        std::shared_ptr<VRQVBaseButtonDelegate> target;
        {
            std::lock_guard lock(mutex);
            target = sender.lock();
        }
        if (!target)
            return;
        target->sendVKeyMessage(VRQVBaseButton::keySequence({std::move(text)}));
        // The container is a view: its last reference is let go on the main thread.
        vrq::dispatchMainAsync([keep = std::move(target)] {});
    }
};

VRQVTriggerButton::VRQVTriggerButton()
    : m_ramp(std::make_shared<Ramp>())
{
}

VRQVTriggerButton::~VRQVTriggerButton()
{
    m_ramp->cancel();
}

std::shared_ptr<VRQVBaseButton> VRQVTriggerButton::initWithModel(std::shared_ptr<VRQVBaseButtonModel> model)
{
    auto button = std::make_shared<VRQVTriggerButton>();
    button->setModel(std::move(model));
    return button;
}

void VRQVTriggerButton::updateWithModel(const std::shared_ptr<VRQVBaseButtonModel>& model)
{
    VRQVNormalButton::updateWithModel(model);
    const auto* trigger = dynamic_cast<const VRQVTriggerButtonModel*>(model.get());
    m_ramp->maxValue = trigger ? vrq_intValue(trigger->maxValue.value_or("")) : 0;
    m_ramp->damperStep = trigger ? vrq_floatValue(trigger->damperStep.value_or("")) : 0;
    const std::string key = model && model->key ? *model->key : std::string();
    buttonView()->setHidden(false);
    if (key == "trigger_lt_max") {
        m_keyType = "lt";
    } else if (key == "trigger_rt_max") {
        m_keyType = "rt";
    } else {
        m_keyType.reset();
        buttonView()->setHidden(true);
    }
}

void VRQVTriggerButton::sendClickInstruction(bool isDown)
{
    if (!m_keyType)
        return;
    m_ramp->cancel();
    m_ramp->keyType = *m_keyType;
    m_ramp->lastTriggerTimeMs = vrq::nowMs();
    {
        std::lock_guard lock(m_ramp->mutex);
        m_ramp->sender = msgSender();
    }
    // The ramp's queue (a thread) is made at the first press: a layout holds
    // triggers that are never touched, and a layout may be loaded often.
    if (!m_msgTimeQueue)
        m_msgTimeQueue = std::make_unique<vrq::SerialQueue>("vrq.trigger");
    std::weak_ptr<Ramp> weakRamp = m_ramp;
    auto timer = vrq::Timer::onQueue(
        *m_msgTimeQueue, kTickInterval, true,
        [weakRamp, isDown] {
            const auto ramp = weakRamp.lock();
            if (ramp && !ramp->tick(isDown))
                ramp->cancel();
        },
        kTickLeeway);
    std::lock_guard lock(m_ramp->mutex);
    m_ramp->msgTimer = std::move(timer);
}

std::int32_t VRQVTriggerButton::maxValue() const
{
    return m_ramp->maxValue;
}

float VRQVTriggerButton::damperStep() const
{
    return m_ramp->damperStep;
}

std::int32_t VRQVTriggerButton::damperValue() const
{
    return m_ramp->damperValue;
}

bool VRQVTriggerButton::isRamping() const
{
    std::lock_guard lock(m_ramp->mutex);
    return m_ramp->msgTimer && m_ramp->msgTimer->isValid();
}
