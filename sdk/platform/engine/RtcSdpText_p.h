#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vrq::rtc {

// Small edits and look-ups on session-description text, line by line. Lines
// end in "\r\n" on output; input may use "\n" alone.
class SdpText {
public:
    static std::vector<std::string> lines(const std::string& sdp);
    static std::string join(const std::vector<std::string>& lines);

    // Whether the text has the form of a session description: "v=0", "o=" and
    // "s=" first, and every further line "<letter>=...".
    static bool isWellFormed(const std::string& sdp);

    // The media of the m= sections, in order ("video", "audio", "application").
    static std::vector<std::string> mediaKinds(const std::string& sdp);

    // Names the sections' mids "0", "1", ... in section order, in the a=mid
    // lines and in the a=group lines that refer to them.
    static std::string withIndexMids(const std::string& sdp);

    // Moves "profile-level-id" to the end of every H.264 fmtp parameter list,
    // so that a pattern reading up to the next blank takes only its six digits.
    static std::string withProfileLevelIdLast(const std::string& sdp);

    // Every a=fingerprint line set to this value ("sha-256 AB:CD:...").
    static std::string withFingerprint(const std::string& sdp, const std::string& fingerprint);

    // The first payload type with this encoding name (any case) in the first
    // section of this media.
    static std::optional<int> payloadType(const std::string& sdp, std::string_view media, std::string_view encodingName);
};

} // namespace vrq::rtc
