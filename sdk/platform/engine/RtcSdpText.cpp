#include "vrq/platform/engine/RtcSdpText_p.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <map>
#include <set>

namespace vrq::rtc {
namespace {

bool startsWith(std::string_view text, std::string_view prefix)
{
    return text.substr(0, prefix.size()) == prefix;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

std::vector<std::string> split(std::string_view text, char separator)
{
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = text.find(separator, start);
        parts.emplace_back(text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
        if (end == std::string_view::npos)
            return parts;
        start = end + 1;
    }
}

std::string trimmed(std::string_view text)
{
    const auto first = text.find_first_not_of(' ');
    if (first == std::string_view::npos)
        return {};
    const auto last = text.find_last_not_of(' ');
    return std::string(text.substr(first, last - first + 1));
}

// "a=rtpmap:102 H264/90000" gives 102 and "H264".
std::optional<std::pair<std::string, std::string>> rtpmap(std::string_view line)
{
    constexpr std::string_view kPrefix = "a=rtpmap:";
    if (!startsWith(line, kPrefix))
        return std::nullopt;
    line.remove_prefix(kPrefix.size());
    const auto blank = line.find(' ');
    const auto slash = line.find('/', blank);
    if (blank == std::string_view::npos || slash == std::string_view::npos)
        return std::nullopt;
    return std::make_pair(std::string(line.substr(0, blank)), std::string(line.substr(blank + 1, slash - blank - 1)));
}

// "m=video 9 UDP/TLS/RTP/SAVPF 102" gives "video".
std::string mediaOf(std::string_view line)
{
    line.remove_prefix(2);
    return std::string(line.substr(0, line.find(' ')));
}

} // namespace

std::vector<std::string> SdpText::lines(const std::string& sdp)
{
    std::vector<std::string> result;
    for (std::string& line : split(sdp, '\n')) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (!line.empty())
            result.push_back(std::move(line));
    }
    return result;
}

std::string SdpText::join(const std::vector<std::string>& lines)
{
    std::string text;
    for (const std::string& line : lines)
        text.append(line).append("\r\n");
    return text;
}

bool SdpText::isWellFormed(const std::string& sdp)
{
    const std::vector<std::string> all = lines(sdp);
    if (all.size() < 3 || all[0] != "v=0" || !startsWith(all[1], "o=") || !startsWith(all[2], "s="))
        return false;
    return std::all_of(all.begin(), all.end(), [](const std::string& line) {
        return line.size() >= 2 && line[0] >= 'a' && line[0] <= 'z' && line[1] == '=';
    });
}

std::vector<std::string> SdpText::mediaKinds(const std::string& sdp)
{
    std::vector<std::string> kinds;
    for (const std::string& line : lines(sdp)) {
        if (startsWith(line, "m="))
            kinds.push_back(mediaOf(line));
    }
    return kinds;
}

std::string SdpText::withIndexMids(const std::string& sdp)
{
    std::vector<std::string> all = lines(sdp);
    std::map<std::string, std::string> renamed;
    int section = -1;
    for (std::string& line : all) {
        if (startsWith(line, "m=")) {
            ++section;
        } else if (section >= 0 && startsWith(line, "a=mid:")) {
            const std::string index = std::to_string(section);
            renamed[line.substr(6)] = index;
            line = "a=mid:" + index;
        }
    }
    for (std::string& line : all) {
        if (!startsWith(line, "a=group:"))
            continue;
        std::vector<std::string> tokens = split(line, ' ');
        for (std::size_t i = 1; i < tokens.size(); ++i) {
            if (auto it = renamed.find(tokens[i]); it != renamed.end())
                tokens[i] = it->second;
        }
        std::string rebuilt = tokens[0];
        for (std::size_t i = 1; i < tokens.size(); ++i)
            rebuilt.append(" ").append(tokens[i]);
        line = std::move(rebuilt);
    }
    return join(all);
}

std::string SdpText::withFingerprint(const std::string& sdp, const std::string& fingerprint)
{
    std::vector<std::string> all = lines(sdp);
    for (std::string& line : all) {
        if (startsWith(line, "a=fingerprint:"))
            line = "a=fingerprint:" + fingerprint;
    }
    return join(all);
}

std::string SdpText::withProfileLevelIdLast(const std::string& sdp)
{
    std::vector<std::string> all = lines(sdp);
    std::set<std::string> h264Types;
    for (const std::string& line : all) {
        if (auto map = rtpmap(line); map && equalsIgnoringCase(map->second, "H264"))
            h264Types.insert(map->first);
    }
    constexpr std::string_view kFmtp = "a=fmtp:";
    for (std::string& line : all) {
        if (!startsWith(line, kFmtp))
            continue;
        const auto blank = line.find(' ');
        if (blank == std::string::npos || !h264Types.count(line.substr(kFmtp.size(), blank - kFmtp.size())))
            continue;
        std::vector<std::string> others;
        std::vector<std::string> profileLevel;
        for (const std::string& parameter : split(std::string_view(line).substr(blank + 1), ';')) {
            std::string value = trimmed(parameter);
            if (value.empty())
                continue;
            (startsWith(value, "profile-level-id=") ? profileLevel : others).push_back(std::move(value));
        }
        others.insert(others.end(), profileLevel.begin(), profileLevel.end());
        std::string rebuilt = line.substr(0, blank + 1);
        for (std::size_t i = 0; i < others.size(); ++i)
            rebuilt.append(i ? ";" : "").append(others[i]);
        line = std::move(rebuilt);
    }
    return join(all);
}

std::optional<int> SdpText::payloadType(const std::string& sdp, std::string_view media, std::string_view encodingName)
{
    bool inSection = false;
    bool seenSection = false;
    for (const std::string& line : lines(sdp)) {
        if (startsWith(line, "m=")) {
            if (seenSection)
                return std::nullopt;
            inSection = mediaOf(line) == media;
            seenSection = inSection;
            continue;
        }
        if (!inSection)
            continue;
        auto map = rtpmap(line);
        if (!map || !equalsIgnoringCase(map->second, encodingName))
            continue;
        int type = 0;
        const std::string& text = map->first;
        if (std::from_chars(text.data(), text.data() + text.size(), type).ec == std::errc())
            return type;
    }
    return std::nullopt;
}

} // namespace vrq::rtc
