#include "vrq/utils/VRQRedaction.h"

#include <array>

namespace {

constexpr std::string_view kHidden = "***";

bool isJsonSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// "name" : "value" -> "name" : "***", for every occurrence of the quoted name.
void hideJsonMembers(std::string& text, std::string_view name)
{
    const std::string quoted = "\"" + std::string(name) + "\"";
    for (auto at = text.find(quoted); at != std::string::npos; at = text.find(quoted, at + 1)) {
        auto cursor = at + quoted.size();
        while (cursor < text.size() && isJsonSpace(text[cursor]))
            ++cursor;
        if (cursor >= text.size() || text[cursor] != ':')
            continue;
        ++cursor;
        while (cursor < text.size() && isJsonSpace(text[cursor]))
            ++cursor;
        if (cursor >= text.size() || text[cursor] != '"')
            continue;
        const auto begin = cursor + 1;
        auto end = begin;
        while (end < text.size() && text[end] != '"')
            end += text[end] == '\\' ? 2 : 1;
        text.replace(begin, std::min(end, text.size()) - begin, kHidden);
    }
}

// name=value -> name=*** where name starts a query member.
void hideQueryMembers(std::string& text, std::string_view name)
{
    const std::string key = std::string(name) + "=";
    for (auto at = text.find(key); at != std::string::npos; at = text.find(key, at + 1)) {
        if (at > 0 && text[at - 1] != '?' && text[at - 1] != '&')
            continue;
        const auto begin = at + key.size();
        const auto end = text.find_first_of("& \"\n", begin);
        text.replace(begin, (end == std::string::npos ? text.size() : end) - begin, kHidden);
    }
}

} // namespace

std::string vrq_redacted(std::string_view secret)
{
    return secret.empty() ? std::string() : std::string(kHidden);
}

std::string vrq_redactedText(std::string_view text)
{
    std::string out(text);
    for (std::string_view member : std::array<std::string_view, 3>{"token", "metric_key", "sig"})
        hideJsonMembers(out, member);
    for (std::string_view member : std::array<std::string_view, 3>{"token", "stream_id", "sig"})
        hideQueryMembers(out, member);
    return out;
}
