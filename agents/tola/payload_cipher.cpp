// The payload cipher: AES-256-CBC under the SHA-256 digest of a key text, zero IV, PKCS#7
// padding, Base64 without line breaks. Whole messages are handled in memory in one pass.
#include "payload_cipher.h"

#include <openssl/bio.h>
#include <openssl/evp.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tola_log.h"

namespace {
constexpr int kKeySize = 32;
constexpr int kIvSize = 16;
constexpr int kBlockSize = 16;
}  // namespace

void GetKeyBytes(const char* keyText, unsigned char* key) {
    TOLA_TRACE();
    // EVP_Digest is OpenSSL 3's one-shot SHA-256; the SHA256_Init/Update/Final calls give the
    // same digest but are deprecated there and would fail the build under -Werror.
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    std::memset(digest, 0, sizeof digest);
    EVP_Digest(keyText, std::strlen(keyText), digest, &digestLength, EVP_sha256(), nullptr);
    std::memcpy(key, digest, kKeySize);
}

int Base64Encode(const char* data, char** output, int* length) {
    TOLA_TRACE();
    int cipherLength = *length;
    int encodedSize = static_cast<int>(std::ceil(cipherLength / 3.0) * 4.0 + 1.0);
    char* buffer = static_cast<char*>(std::malloc(static_cast<size_t>(encodedSize)));
    *output = buffer;
    if (buffer == nullptr) {
        return 1;
    }
    FILE* stream = fmemopen(buffer, static_cast<size_t>(encodedSize), "w");
    if (stream == nullptr) {
        std::free(buffer);
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  fmemopen failed during encode.");
        return 1;
    }
    std::memset(buffer, 0, static_cast<size_t>(encodedSize));
    BIO* b64 = BIO_new(BIO_f_base64());
    BIO* file = BIO_new_fp(stream, BIO_NOCLOSE);
    BIO_set_flags(b64, BIO_FLAGS_BASE64_NO_NL);
    BIO_push(b64, file);
    BIO_write(b64, data, cipherLength);
    (void)BIO_flush(b64);
    BIO_free_all(b64);
    std::fclose(stream);
    // The buffer was zeroed and is one byte longer than the encoded text, so it ends in a NUL.
    return 0;
}

int CalcDecodeLength(const char* text) {
    TOLA_TRACE();
    size_t length = std::strlen(text);
    int padding = 0;
    // An empty text has no padding to look at.
    if (length >= 2 && text[length - 1] == '=' && text[length - 2] == '=') {
        padding = 2;
    } else if (length >= 1 && text[length - 1] == '=') {
        padding = 1;
    }
    return static_cast<int>(static_cast<double>(length) * 0.75 - padding);
}

int Base64Decode(char* text, char** output, int* length) {
    TOLA_TRACE();
    size_t textLength = std::strlen(text);
    if (textLength > static_cast<size_t>(INT_MAX - 1)) {
        trace.Silence();
        return 1;
    }
    int estimate = CalcDecodeLength(text);
    // The single read below may return up to textLength bytes for malformed input (junk or
    // padding in the middle), more than the estimate; size the buffer for the larger of the two.
    size_t bufferSize = static_cast<size_t>(estimate > 0 ? estimate : 0);
    if (bufferSize < textLength) {
        bufferSize = textLength;
    }
    bufferSize += 1;
    char* buffer = static_cast<char*>(std::malloc(bufferSize));
    if (buffer == nullptr) {
        trace.Silence();
        return 1;
    }
    FILE* stream = fmemopen(text, textLength, "r");
    if (stream == nullptr) {
        std::free(buffer);
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  fmemopen failed during decode.");
        trace.Silence();
        return 1;
    }
    std::memset(buffer, 0, bufferSize);
    BIO* b64 = BIO_new(BIO_f_base64());
    BIO* file = BIO_new_fp(stream, BIO_NOCLOSE);
    BIO_set_flags(b64, BIO_FLAGS_BASE64_NO_NL);
    BIO_push(b64, file);
    *length = BIO_read(b64, buffer, static_cast<int>(textLength));
    BIO_free_all(b64);
    std::fclose(stream);
    *output = buffer;
    return 0;
}

int AesEncrypt(const char* keyText, const char* plainText, char** output) {
    TOLA_TRACE();
    size_t plainLength = std::strlen(plainText);
    if (plainLength > static_cast<size_t>(INT_MAX / 2 - 2 * kBlockSize)) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - memory allocation for cipher text failed.");
        return 1;
    }
    // Always at least the padded length (the remainder is added, not rounded up to a block).
    size_t bufferSize = plainLength + (plainLength % kBlockSize) + kBlockSize;
    unsigned char* cipher = static_cast<unsigned char*>(std::malloc(bufferSize));
    EVP_CIPHER_CTX* context = cipher != nullptr ? EVP_CIPHER_CTX_new() : nullptr;
    if (context == nullptr) {
        std::free(cipher);
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - memory allocation for cipher text failed.");
        return 1;
    }
    unsigned char key[kKeySize];
    unsigned char iv[kIvSize];
    std::memset(iv, 0, sizeof iv);
    GetKeyBytes(keyText, key);
    std::memset(cipher, 0, bufferSize);
    EVP_EncryptInit_ex(context, EVP_aes_256_cbc(), nullptr, key, iv);
    int updateLength = 0;
    int finalLength = 0;
    EVP_EncryptUpdate(context, cipher, &updateLength, reinterpret_cast<const unsigned char*>(plainText),
                      static_cast<int>(plainLength));
    EVP_EncryptFinal_ex(context, cipher + updateLength, &finalLength);
    int cipherLength = updateLength + finalLength;

    int rc = Base64Encode(reinterpret_cast<const char*>(cipher), output, &cipherLength);
    std::free(cipher);
    EVP_CIPHER_CTX_free(context);
    return rc;
}

int AesDecrypt(const char* keyText, const char* base64Text, char** output) {
    TOLA_TRACE();
    unsigned char key[kKeySize];
    unsigned char iv[kIvSize];
    std::memset(iv, 0, sizeof iv);
    std::memset(key, 0, sizeof key);
    int updateLength = 0;
    int finalLength = 0;

    char* decoded = nullptr;
    int decodedLength = 0;
    if (Base64Decode(const_cast<char*>(base64Text), &decoded, &decodedLength) != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  Decoding failed.");
        trace.Silence();
        return 1;
    }
    // A negative count is a read error. The buffer has room for the terminating NUL even when
    // nothing was decoded, and for the block the cipher may write beyond the input length.
    char* plain = decodedLength >= 0
                      ? static_cast<char*>(std::malloc(static_cast<size_t>(decodedLength) + kBlockSize + 1))
                      : nullptr;
    EVP_CIPHER_CTX* context = plain != nullptr ? EVP_CIPHER_CTX_new() : nullptr;
    if (context == nullptr) {
        std::free(plain);
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] -  memory allocation for plain text failed.");
        std::free(decoded);
        return 1;
    }
    *output = plain;
    std::memset(plain, 0, static_cast<size_t>(decodedLength) + kBlockSize + 1);
    GetKeyBytes(keyText, key);
    EVP_DecryptInit_ex(context, EVP_aes_256_cbc(), nullptr, key, iv);
    unsigned char* out = reinterpret_cast<unsigned char*>(plain);
    EVP_DecryptUpdate(context, out, &updateLength, reinterpret_cast<const unsigned char*>(decoded),
                      decodedLength);
    // A failed padding check (wrong key, damaged text) contributes nothing; the caller sees
    // success and finds out when the text does not parse.
    if (EVP_DecryptFinal_ex(context, out + updateLength, &finalLength) != 1) {
        finalLength = 0;
    }
    plain[updateLength + finalLength] = '\0';
    EVP_CIPHER_CTX_free(context);
    std::free(decoded);
    return 0;
}
