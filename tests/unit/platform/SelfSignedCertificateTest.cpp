#include "vrq/platform/services/SelfSignedCertificate.h"

#include <gtest/gtest.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdio>
#include <memory>
#include <string>

namespace {

template <class T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* object) const { Free(object); }
};
using CertificatePtr = std::unique_ptr<X509, Deleter<X509, X509_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using BioPtr = std::unique_ptr<BIO, Deleter<BIO, BIO_free_all>>;

// The certificate and key as OpenSSL reads them back from the PEM text, the
// way the DTLS element does.
std::pair<CertificatePtr, KeyPtr> parse(const std::string& pem)
{
    BioPtr certificateBio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    CertificatePtr certificate(PEM_read_bio_X509(certificateBio.get(), nullptr, nullptr, nullptr));
    BioPtr keyBio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    KeyPtr key(PEM_read_bio_PrivateKey(keyBio.get(), nullptr, nullptr, nullptr));
    return {std::move(certificate), std::move(key)};
}

TEST(SelfSignedCertificateTest, IsAValidSelfSignedP256CertificateWithItsKeyAndFingerprint)
{
    const auto made = vrq::SelfSignedCertificate::make();
    ASSERT_TRUE(made);
    const auto [certificate, key] = parse(made->pem);
    ASSERT_TRUE(certificate);
    ASSERT_TRUE(key);
    EXPECT_EQ(EVP_PKEY_get_base_id(key.get()), EVP_PKEY_EC);
    char curve[64] = {};
    size_t length = 0;
    ASSERT_EQ(EVP_PKEY_get_utf8_string_param(key.get(), "group", curve, sizeof curve, &length), 1);
    EXPECT_STREQ(curve, "prime256v1");
    EXPECT_EQ(X509_check_private_key(certificate.get(), key.get()), 1) << "the key belongs to the certificate";
    EXPECT_EQ(X509_verify(certificate.get(), key.get()), 1) << "signed by its own key";
    EXPECT_LT(X509_cmp_current_time(X509_get0_notBefore(certificate.get())), 0);
    EXPECT_GT(X509_cmp_current_time(X509_get0_notAfter(certificate.get())), 0);

    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    ASSERT_EQ(X509_digest(certificate.get(), EVP_sha256(), digest, &size), 1);
    std::string expected;
    for (unsigned int i = 0; i < size; ++i) {
        char pair[4];
        std::snprintf(pair, sizeof pair, i ? ":%02X" : "%02X", digest[i]);
        expected += pair;
    }
    EXPECT_EQ(made->sha256Fingerprint, expected);

    const auto other = vrq::SelfSignedCertificate::make();
    ASSERT_TRUE(other);
    EXPECT_NE(other->pem, made->pem);
    EXPECT_NE(other->sha256Fingerprint, made->sha256Fingerprint);
}

} // namespace
