// Platform XML reader: one process-wide open document, values addressed by XPath.
// Every operation returns 0 on success and non-zero on failure.
#pragma once

#include <cstdint>

// Opens and parses the file. The program passes the same path twice (file and schema slot).
int xmldata_initialize(const char* path, const char* schemaPath);
// Copies the text of the first element matching xpath: at most maxChars characters, then a NUL,
// so the buffer must hold maxChars + 1 bytes. An empty element gives "" and succeeds.
int xmldata_getstring(const char* xpath, char* buffer, unsigned int maxChars);
// Parses the element's text as an unsigned 32-bit decimal number.
int xmldata_getuint32(const char* xpath, uint32_t* value);
// Parses the element's text as a signed 32-bit decimal number; stores defaultValue when the
// element is missing or not a number (and then still returns 0).
int xmldata_getint32_default(const char* xpath, int32_t* value, int32_t defaultValue);
// Number of nodes matching xpath (0 when none).
int xmldata_getcount(const char* xpath, int* count);
// Releases the open document.
int xmldata_close(void);
// Releases the open document and the reader's state.
int xmldata_shutdown(void);
