// Checks a configuration document with the agent's own parser and validators before the portal
// queues it, so that an operator sees the device's refusal in the console instead of in a receipt.
#pragma once

#include <string>

namespace portal {

struct DocumentCheck {
    int code = 0;         // 0 accepted; otherwise the code the device would send in its receipt
    std::string message;  // the device's user text for that code (may be empty)
    std::string detail;   // for a document that is not JSON or not an array: where and why
};

// Parses and validates text as the device does, against a device in its factory state (the
// portal knows nothing of the device's current settings). Nothing is applied. Thread-safe: the
// checks run one at a time.
DocumentCheck CheckDocument(const std::string& text);

}  // namespace portal
