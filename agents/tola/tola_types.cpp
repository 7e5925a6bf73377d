#include "tola_types.h"

#include <cstring>

void tola_copy_text(char (&dst)[TOLA_TEXT_SIZE], const char* src) {
    if (src == nullptr) {
        dst[0] = '\0';
        return;
    }
    size_t length = strnlen(src, TOLA_TEXT_MAX);
    std::memcpy(dst, src, length);
    dst[length] = '\0';
}
