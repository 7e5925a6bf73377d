// The payload cipher: AES-256-CBC under the SHA-256 digest of a key text, zero IV, PKCS#7
// padding, Base64 without line breaks. Whole messages are handled in memory in one pass.
#include "payload_cipher.h"

#include <openssl/bio.h>
#include <openssl/evp.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tola_log.h"

namespace {
constexpr int kKeySize = 32;
constexpr int kIvSize = 16;
constexpr int kBlockSize = 16;
constexpr size_t kCachedKeyTextSize = 128;

// The algorithms are fetched from the provider once per process. EVP_aes_256_cbc() and
// EVP_sha256() make OpenSSL 3 look them up again at every init, which costs more than
// encrypting a whole request. Never freed: they live as long as the process.
const EVP_CIPHER* aes256Cbc() {
    static const EVP_CIPHER* const cipher = [] {
        const EVP_CIPHER* fetched = EVP_CIPHER_fetch(nullptr, "AES-256-CBC", nullptr);
        return fetched != nullptr ? fetched : EVP_aes_256_cbc();
    }();
    return cipher;
}

const EVP_MD* sha256() {
    static const EVP_MD* const digest = [] {
        const EVP_MD* fetched = EVP_MD_fetch(nullptr, "SHA256", nullptr);
        return fetched != nullptr ? fetched : EVP_sha256();
    }();
    return digest;
}

// The last key text each thread derived, and its digest: the agent encrypts and decrypts with
// one or two key texts for its whole life, so the digest is computed once per key text rather
// than once per message. The key text itself stays in the runtime record anyway, and the digest
// is nothing more than a function of it.
struct KeyCache {
    bool valid = false;
    size_t length = 0;
    char text[kCachedKeyTextSize];
    unsigned char key[kKeySize];
};
thread_local KeyCache tKeyCache;

// Base64 that EVP_DecodeBlock reads exactly as the Base64 filter does: whole quads of the
// alphabet, '=' only as the last one or two characters, no white space (EVP_DecodeBlock would
// trim it at the ends; the filter treats it otherwise). Anything else takes the filter.
bool isBase64Char(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

bool isPlainBase64(const char* text, size_t length) {
    if (length == 0 || length % 4 != 0 || !isBase64Char(text[0])) {
        return false;
    }
    if (std::memchr(text, '=', length - 2) != nullptr) {
        return false;
    }
    char last = text[length - 1];
    char beforeLast = text[length - 2];
    return (isBase64Char(last) || last == '=') &&
           (isBase64Char(beforeLast) || (beforeLast == '=' && last == '='));
}

}  // namespace

void GetKeyBytes(const char* keyText, unsigned char* key) {
    TOLA_TRACE();
    size_t length = std::strlen(keyText);
    KeyCache& cache = tKeyCache;
    if (cache.valid && cache.length == length && std::memcmp(cache.text, keyText, length) == 0) {
        std::memcpy(key, cache.key, kKeySize);
        return;
    }
    // EVP_Digest is OpenSSL 3's one-shot SHA-256; the SHA256_Init/Update/Final calls give the
    // same digest but are deprecated there and would fail the build under -Werror.
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    std::memset(digest, 0, sizeof digest);
    EVP_Digest(keyText, length, digest, &digestLength, sha256(), nullptr);
    std::memcpy(key, digest, kKeySize);
    if (length < kCachedKeyTextSize) {
        std::memcpy(cache.text, keyText, length);
        cache.length = length;
        std::memcpy(cache.key, digest, kKeySize);
        cache.valid = true;
    }
}

int Base64Encode(const char* data, char** output, int* length) {
    TOLA_TRACE();
    int cipherLength = *length;
    // Four characters for every three bytes or part of them, and the NUL.
    size_t encodedSize = 4 * ((static_cast<size_t>(cipherLength) + 2) / 3) + 1;
    char* buffer = static_cast<char*>(std::malloc(encodedSize));
    *output = buffer;
    if (buffer == nullptr) {
        return 1;
    }
    // Standard alphabet, '=' padding, no line breaks, NUL-terminated: the bytes the Base64 filter
    // with BIO_FLAGS_BASE64_NO_NL writes, without a memory stream and a filter chain per message.
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(buffer), reinterpret_cast<const unsigned char*>(data),
                    cipherLength);
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
    if (isPlainBase64(text, textLength)) {
        // EVP_DecodeBlock writes three bytes per quad, the padding's zero bytes included.
        size_t decodedSize = textLength / 4 * 3;
        unsigned char* decoded = static_cast<unsigned char*>(std::malloc(decodedSize + 1));
        if (decoded == nullptr) {
            trace.Silence();
            return 1;
        }
        int count = EVP_DecodeBlock(decoded, reinterpret_cast<const unsigned char*>(text),
                                    static_cast<int>(textLength));
        if (count >= 0) {
            int padding = (text[textLength - 1] == '=') + (text[textLength - 2] == '=');
            decoded[count - padding] = '\0';
            *length = count - padding;
            *output = reinterpret_cast<char*>(decoded);
            return 0;
        }
        std::free(decoded);
    }
    // Anything else (line breaks, junk, padding in the middle) through the Base64 filter, which
    // decides what such a text decodes to.
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
    EVP_EncryptInit_ex(context, aes256Cbc(), nullptr, key, iv);
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
    // Only the bytes up to the NUL below are ever read, so the buffer is not cleared first.
    GetKeyBytes(keyText, key);
    EVP_DecryptInit_ex(context, aes256Cbc(), nullptr, key, iv);
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
