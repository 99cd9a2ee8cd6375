#pragma once

#include <QByteArray>

#include <openssl/types.h>

namespace vn::crypto {

/// RSA keys in their standard encodings, read and written without OpenSSL's generic decoders and
/// encoders. In OpenSSL 3.0 each of those sets up a context that searches every decoder or encoder
/// the providers offer, which costs far more than using the key afterwards (some 350 us for an
/// RSA-3072 public key against 45 us for a signature check), and the account library parses a key
/// for every identity of a chain each time it restores a profile.
///
/// The readers accept only the plain forms that common tools write and give null for anything
/// else, so that the caller hands such input to OpenSSL's own readers: whatever is read here would
/// have been read alike by OpenSSL, and everything else still is.
class RsaKeyEncoding
{
public:
    RsaKeyEncoding() = delete;

    /// An RSA public key from one PEM block "PUBLIC KEY" (SubjectPublicKeyInfo of rsaEncryption)
    /// or "RSA PUBLIC KEY" (PKCS#1) in the strict form of RFC 7468; null for any other input.
    static EVP_PKEY *readPublicPem(const QByteArray &pem);
    /// An RSA private key from one unencrypted PEM block "PRIVATE KEY" (PKCS#8 of a two-prime key
    /// without attributes) or "RSA PRIVATE KEY" (PKCS#1) in the strict form; null otherwise.
    static EVP_PKEY *readPrivatePem(const QByteArray &pem);

    /// The public half of the RSA key @p key as a key of its own; null on failure.
    static EVP_PKEY *publicHalf(EVP_PKEY *key);
    /// The DER SubjectPublicKeyInfo of the RSA key @p key's public half; empty on failure.
    static QByteArray subjectPublicKeyInfo(EVP_PKEY *key);
    /// @p der as a PEM block labelled @p label, with lines of 64 characters.
    static QByteArray toPem(const QByteArray &der, const char *label);
};

} // namespace vn::crypto
