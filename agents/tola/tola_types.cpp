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

std::string tola_record_text(const char (&field)[TOLA_TEXT_SIZE]) {
    return std::string(field, strnlen(field, TOLA_TEXT_SIZE));
}

void tola_trim_blanks(std::string& text) {
    static const char* const kBlanks = " \t\r\n\b\v";
    size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos) {
        text.clear();
        return;
    }
    size_t last = text.find_last_not_of(kBlanks);
    text = text.substr(first, last - first + 1);
}
