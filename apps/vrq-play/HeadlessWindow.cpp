#include "HeadlessWindow.h"

#include "vrq/control/VRQGameVideoView.h"
#include "vrq/core/VRQGamePlayer.h"

#include <atomic>
#include <csignal>

namespace {

std::atomic<bool> g_interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set from a signal handler");

void onInterrupt(int)
{
    g_interrupted.store(true);
}

} // namespace

void HeadlessWindow::attach(const std::shared_ptr<VRQGamePlayer>& player)
{
    // The player refuses to start with a zero-sized view.
    if (auto view = player->videoView())
        view->setFrame({{0, 0}, {1280, 720}});
    std::signal(SIGINT, onInterrupt);
}

bool HeadlessWindow::closeRequested() const
{
    return g_interrupted.load();
}

void HeadlessWindow::detach()
{
    std::signal(SIGINT, SIG_DFL);
}
