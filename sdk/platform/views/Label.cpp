#include "vrq/platform/views/Label.h"

#include <utility>

namespace vrq {

Label::Label(Rect frame)
    : View(frame)
{
    setUserInteractionEnabled(false);
}

void Label::setText(std::string text)
{
    if (text == m_text)
        return;
    m_text = std::move(text);
    setNeedsDisplay();
}

void Label::setFontSize(double size)
{
    if (size == m_fontSize)
        return;
    m_fontSize = size;
    setNeedsDisplay();
}

void Label::setBold(bool bold)
{
    if (bold == m_bold)
        return;
    m_bold = bold;
    setNeedsDisplay();
}

void Label::setTextColor(Color color)
{
    if (color == m_textColor)
        return;
    m_textColor = color;
    setNeedsDisplay();
}

void Label::setTextAlignment(TextAlignment alignment)
{
    if (alignment == m_alignment)
        return;
    m_alignment = alignment;
    setNeedsDisplay();
}

} // namespace vrq
