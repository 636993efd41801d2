#include "vrq/platform/services/SelfSignedCertificate.h"

#include "vrq/platform/services/Crypto.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>

#include <memory>

namespace vrq {
namespace {

template <class T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* object) const { Free(object); }
};
using KeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using CertificatePtr = std::unique_ptr<X509, Deleter<X509, X509_free>>;
using NamePtr = std::unique_ptr<X509_NAME, Deleter<X509_NAME, X509_NAME_free>>;
using BioPtr = std::unique_ptr<BIO, Deleter<BIO, BIO_free_all>>;

constexpr long kDaySeconds = 24 * 60 * 60;

bool setIdentity(X509* certificate)
{
    unsigned char serial[8];
    if (RAND_bytes(serial, sizeof serial) != 1)
        return false;
    serial[0] &= 0x7F; // a positive number
    BIGNUM* number = BN_bin2bn(serial, sizeof serial, nullptr);
    const bool serialSet = number && BN_to_ASN1_INTEGER(number, X509_get_serialNumber(certificate)) != nullptr;
    BN_free(number);
    if (!serialSet)
        return false;
    const std::string commonName = randomUuid().substr(0, 8);
    NamePtr name(X509_NAME_new());
    return name
           && X509_NAME_add_entry_by_NID(name.get(), NID_commonName, MBSTRING_ASC,
                                         reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1, 0) == 1
           && X509_set_subject_name(certificate, name.get()) == 1 && X509_set_issuer_name(certificate, name.get()) == 1;
}

std::optional<std::string> fingerprintOf(X509* certificate)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (X509_digest(certificate, EVP_sha256(), digest, &length) != 1)
        return std::nullopt;
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        static constexpr char kHex[] = "0123456789ABCDEF";
        if (i)
            text += ':';
        text += kHex[digest[i] >> 4];
        text += kHex[digest[i] & 0x0F];
    }
    return text;
}

std::optional<std::string> pemOf(X509* certificate, EVP_PKEY* key)
{
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio || PEM_write_bio_X509(bio.get(), certificate) != 1
        || PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1)
        return std::nullopt;
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    if (size <= 0 || !data)
        return std::nullopt;
    return std::string(data, static_cast<std::size_t>(size));
}

} // namespace

std::optional<SelfSignedCertificate> SelfSignedCertificate::make()
{
    KeyPtr key(EVP_EC_gen("P-256"));
    CertificatePtr certificate(X509_new());
    if (!key || !certificate || X509_set_version(certificate.get(), 2) != 1 || !setIdentity(certificate.get()))
        return std::nullopt;
    // A day of slack before now, for peers whose clocks run behind.
    if (!X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -kDaySeconds)
        || !X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 30 * kDaySeconds)
        || X509_set_pubkey(certificate.get(), key.get()) != 1 || X509_sign(certificate.get(), key.get(), EVP_sha256()) == 0)
        return std::nullopt;
    auto pem = pemOf(certificate.get(), key.get());
    auto fingerprint = fingerprintOf(certificate.get());
    if (!pem || !fingerprint)
        return std::nullopt;
    return SelfSignedCertificate{std::move(*pem), std::move(*fingerprint)};
}

} // namespace vrq
