#pragma once

#include "vrq/platform/views/GestureRecognizer.h"

namespace vrq {

// Two fingers moving apart or together. scale is the distance between them
// over the distance when the gesture began, or when scale was last set.
class PinchGestureRecognizer : public GestureRecognizer {
public:
    using GestureRecognizer::GestureRecognizer;
    double scale() const;
    void setScale(double scale);

protected:
    void touchesChanged(TouchPhase phase) override;
    void reset() override;

private:
    double fingerDistance() const;
    void followFingers(TouchPhase phase);
    double m_referenceDistance = 0;
    double m_referenceScale = 1.0;
};

} // namespace vrq
