#pragma once

#include "vrq/platform/views/View.h"

#include <string>

namespace vrq {

enum class TextAlignment : int { Left = 0, Center = 1, Right = 2 };

// One line of text in its bounds, centred vertically. Takes no touches by
// default, as UIKit's.
class Label : public View {
public:
    explicit Label(Rect frame = {});
    const std::string& text() const { return m_text; }
    void setText(std::string text);
    double fontSize() const { return m_fontSize; }
    void setFontSize(double size);
    bool isBold() const { return m_bold; }
    void setBold(bool bold);
    Color textColor() const { return m_textColor; }
    void setTextColor(Color color);
    TextAlignment textAlignment() const { return m_alignment; }
    void setTextAlignment(TextAlignment alignment);

private:
    std::string m_text;
    double m_fontSize = 17;
    bool m_bold = false;
    Color m_textColor{0, 0, 0, 1};
    TextAlignment m_alignment = TextAlignment::Left;
};

} // namespace vrq
