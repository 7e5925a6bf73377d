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

bool tola_storable_text(const char* text, size_t limit) {
    if (text == nullptr) {
        return true;
    }
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    const size_t length = strnlen(text, limit);
    for (size_t i = 0; i < length;) {
        unsigned char c = p[i];
        if (c < 0x20 || c == '<' || c == '&') {
            return false;
        }
        if (c == ']' && i + 2 < length && p[i + 1] == ']' && p[i + 2] == '>') {
            return false;
        }
        if (c < 0x80) {
            ++i;
            continue;
        }
        // One UTF-8 sequence: its length, the smallest code point it may encode (no overlong
        // forms), and every continuation byte inside the kept bytes.
        size_t extra = 0;
        uint32_t point = 0;
        uint32_t lowest = 0;
        if ((c & 0xE0) == 0xC0) {
            extra = 1, point = c & 0x1F, lowest = 0x80;
        } else if ((c & 0xF0) == 0xE0) {
            extra = 2, point = c & 0x0F, lowest = 0x800;
        } else if ((c & 0xF8) == 0xF0) {
            extra = 3, point = c & 0x07, lowest = 0x10000;
        } else {
            return false;
        }
        if (i + extra >= length) {
            return false;
        }
        for (size_t k = 1; k <= extra; ++k) {
            if ((p[i + k] & 0xC0) != 0x80) {
                return false;
            }
            point = (point << 6) | (p[i + k] & 0x3F);
        }
        // Surrogates, U+FFFE, U+FFFF and points past U+10FFFF are not characters XML accepts.
        if (point < lowest || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF) || point == 0xFFFE ||
            point == 0xFFFF) {
            return false;
        }
        i += extra + 1;
    }
    return true;
}
