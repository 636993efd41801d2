#include "vrq/control/VRQGameVideoView.h"

VRQGameVideoView::VRQGameVideoView(vrq::Rect frame)
    : VideoView(frame)
{
}
