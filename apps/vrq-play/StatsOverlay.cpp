#include "StatsOverlay.h"

#include "vrq/platform/views/Label.h"

namespace {

constexpr double kMargin = 8;
constexpr double kLineHeight = 17;
constexpr double kFontSize = 13;
constexpr double kWidth = 330;

} // namespace

StatsOverlay::StatsOverlay()
    : vrq::View({{kMargin, kMargin}, {kWidth, kMargin * 2}})
{
    setBackgroundColor({0, 0, 0, 0.6});
    setUserInteractionEnabled(false);
    setHidden(true);
}

void StatsOverlay::setLines(const std::vector<std::string>& lines)
{
    while (m_labels.size() > lines.size()) {
        m_labels.back()->removeFromSuperview();
        m_labels.pop_back();
    }
    while (m_labels.size() < lines.size()) {
        const double top = kMargin / 2 + kLineHeight * static_cast<double>(m_labels.size());
        auto label = std::make_shared<vrq::Label>(vrq::Rect{{kMargin, top}, {kWidth - 2 * kMargin, kLineHeight}});
        label->setFontSize(kFontSize);
        label->setTextColor({1, 1, 1, 1});
        addSubview(label);
        m_labels.push_back(std::move(label));
    }
    for (std::size_t i = 0; i < lines.size(); ++i)
        m_labels[i]->setText(lines[i]);
    vrq_setH(kMargin + kLineHeight * static_cast<double>(lines.size()));
}

std::vector<std::string> StatsOverlay::lines() const
{
    std::vector<std::string> texts;
    for (const auto& label : m_labels)
        texts.push_back(label->text());
    return texts;
}
