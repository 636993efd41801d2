#pragma once

#include "PlayWindow.h"

// No window: the video view gets a fixed 1280 x 720 layout and frames are
// decoded and kept (for a snapshot) but not drawn; input comes only from
// autoplay. Ctrl-C (SIGINT) stands for closing the window: the session then
// ends as it would at the end of its time.
class HeadlessWindow : public PlayWindow {
public:
    void attach(const std::shared_ptr<VRQGamePlayer>& player) override;
    void pump() override {}
    bool closeRequested() const override;
    void detach() override;
};
