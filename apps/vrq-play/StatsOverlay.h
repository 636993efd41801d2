#pragma once

#include "vrq/platform/views/View.h"

#include <memory>
#include <string>
#include <vector>

namespace vrq {
class Label;
}

// The statistics panel over the top left of the window: one label a line on
// a dark, half-transparent ground. Hidden until shown. Main thread only.
class StatsOverlay : public vrq::View {
public:
    StatsOverlay();
    // Replaces the lines; the panel grows or shrinks to them.
    void setLines(const std::vector<std::string>& lines);
    std::vector<std::string> lines() const;

private:
    std::vector<std::shared_ptr<vrq::Label>> m_labels;
};
