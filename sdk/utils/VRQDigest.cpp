#include "vrq/utils/VRQDigest.h"

#include "vrq/platform/services/Crypto.h"

std::string vrq_md5(std::string_view text)
{
    text = text.substr(0, text.find('\0'));
    const auto digest = vrq::md5(text);
    return vrq::toHex(digest.data(), digest.size());
}
