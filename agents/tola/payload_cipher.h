// The payload cipher shared with the portal: AES-256-CBC under the SHA-256 digest of a key text,
// an all-zero IV, PKCS#7 padding, standard Base64 without line breaks. Buffers returned through
// the output pointers are malloc'ed; the caller frees them. 0 on success, 1 on failure.
#pragma once

void GetKeyBytes(const char* keyText, unsigned char* key);
int AesEncrypt(const char* keyText, const char* plainText, char** output);
int AesDecrypt(const char* keyText, const char* base64Text, char** output);
int Base64Encode(const char* data, char** output, int* length);
int Base64Decode(char* text, char** output, int* length);
int CalcDecodeLength(const char* text);
