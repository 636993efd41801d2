#pragma once

#include "vrq/VRQVKey/button/VRQVBaseButtonDelegate.h"
#include "vrq/platform/views/Touch.h"
#include "vrq/platform/views/View.h"

#include <nlohmann/json.hpp>

#include <memory>
#include <string>
#include <vector>

class VRQVBaseButtonModel;

// An on-screen button of the gamepad: turns the touches it gets into press,
// move and release calls in the container's coordinates, which the kinds of
// button act on. Every message it sends is
// {"type": "key_seq", "keys": [...]} through its sender. Main thread only.
class VRQVBaseButton : public vrq::View {
public:
    VRQVBaseButton();
    explicit VRQVBaseButton(std::weak_ptr<VRQVBaseButtonDelegate> sender);

    // A new button of this class for a model; laid out by updateWithModel.
    static std::shared_ptr<VRQVBaseButton> initWithModel(std::shared_ptr<VRQVBaseButtonModel> model);

    const std::shared_ptr<VRQVBaseButtonModel>& model() const { return m_model; }
    std::shared_ptr<VRQVBaseButtonDelegate> msgSender() const { return m_msgSender.lock(); }
    void setMsgSender(std::weak_ptr<VRQVBaseButtonDelegate> sender) { m_msgSender = std::move(sender); }
    bool canMove() const { return m_canMove; }
    const std::shared_ptr<vrq::Touch>& validTouch() const { return m_validTouch; }

    // Places the button by its model's "left", "top", "width" and "height".
    virtual void updateWithModel(const std::shared_ptr<VRQVBaseButtonModel>& model);
    virtual void onPressDown(double x, double y);
    virtual void onMove(double x, double y);
    virtual void onPressUp(double x, double y);

    // The first touch that begins is followed; moves reach onMove only when
    // the button can move. Every touch of the event that ends (or is
    // cancelled) releases the button, followed or not: two touches ending in
    // one event release it twice, as the remote side has always seen it.
    void touchesBegan(const vrq::TouchSet& touches, const vrq::Event& event) override;
    void touchesMoved(const vrq::TouchSet& touches, const vrq::Event& event) override;
    void touchesEnded(const vrq::TouchSet& touches, const vrq::Event& event) override;
    void touchesCancelled(const vrq::TouchSet& touches, const vrq::Event& event) override;

    // {"type": "key_seq", "keys": keys}
    static nlohmann::json keySequence(std::vector<std::string> keys);

protected:
    void setModel(std::shared_ptr<VRQVBaseButtonModel> model) { m_model = std::move(model); }
    void setCanMove(bool canMove) { m_canMove = canMove; }
    // A point of a touch in the container's coordinates.
    vrq::Point inContainer(const vrq::Touch& touch) const;
    void sendKeys(std::vector<std::string> keys) const;

private:
    void commonInit();
    void releaseTouches(const vrq::Event& event, vrq::TouchPhase phase);

    std::shared_ptr<VRQVBaseButtonModel> m_model;
    std::weak_ptr<VRQVBaseButtonDelegate> m_msgSender;
    bool m_canMove = false;
    std::shared_ptr<vrq::Touch> m_validTouch;
};
