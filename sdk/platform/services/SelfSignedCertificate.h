#pragma once

#include <optional>
#include <string>

namespace vrq {

// A fresh self-signed X.509 certificate with an ECDSA P-256 key, the kind
// browsers make for DTLS. Valid from a day ago for 30 days, with a random
// serial number and common name. Making one takes about a millisecond.
struct SelfSignedCertificate {
    std::string pem;               // the certificate, then the private key
    std::string sha256Fingerprint; // of the certificate: "AB:CD:..." (32 bytes)

    // Nothing when OpenSSL fails.
    static std::optional<SelfSignedCertificate> make();
};

} // namespace vrq
