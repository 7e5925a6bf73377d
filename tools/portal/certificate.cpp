#include "certificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <memory>

namespace portal {

namespace {

bool addExtension(X509* cert, int nid, const char* value) {
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, cert, cert, nullptr, nullptr, 0);
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
    if (ext == nullptr) {
        return false;
    }
    bool ok = X509_add_ext(cert, ext, -1) == 1;
    X509_EXTENSION_free(ext);
    return ok;
}

bool writePem(const std::string& path, bool key, EVP_PKEY* pkey, X509* cert) {
    FILE* out = std::fopen(path.c_str(), "w");
    if (out == nullptr) {
        return false;
    }
    bool ok = key ? PEM_write_PrivateKey(out, pkey, nullptr, nullptr, 0, nullptr, nullptr) == 1
                  : PEM_write_X509(out, cert) == 1;
    return std::fclose(out) == 0 && ok;
}

}  // namespace

bool MakeSelfSignedCertificate(const std::string& certPath, const std::string& keyPath, std::string& why) {
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> pkey(EVP_EC_gen("P-256"), EVP_PKEY_free);
    std::unique_ptr<X509, decltype(&X509_free)> cert(X509_new(), X509_free);
    if (!pkey || !cert) {
        why = "key generation failed";
        return false;
    }
    X509* c = cert.get();
    X509_set_version(c, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(c), static_cast<long>(time(nullptr)));
    X509_gmtime_adj(X509_getm_notBefore(c), -3600);
    X509_gmtime_adj(X509_getm_notAfter(c), 30L * 24 * 3600);
    X509_set_pubkey(c, pkey.get());
    X509_NAME* name = X509_get_subject_name(c);
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("tola-portal"),
                               -1, -1, 0);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("portal.tola.test"), -1, -1, 0);
    X509_set_issuer_name(c, name);
    if (!addExtension(c, NID_basic_constraints, "critical,CA:TRUE") ||
        !addExtension(c, NID_key_usage, "critical,digitalSignature,keyCertSign") ||
        !addExtension(c, NID_subject_key_identifier, "hash") ||
        !addExtension(c, NID_subject_alt_name,
                      "DNS:localhost,DNS:portal.tola.test,DNS:provision.tola.test,IP:127.0.0.1")) {
        why = "certificate extensions failed";
        return false;
    }
    if (X509_sign(c, pkey.get(), EVP_sha256()) == 0) {
        why = "signing failed";
        return false;
    }
    if (!writePem(keyPath, true, pkey.get(), nullptr) || !writePem(certPath, false, nullptr, c)) {
        why = "cannot write " + certPath + " or " + keyPath;
        return false;
    }
    return true;
}

}  // namespace portal
