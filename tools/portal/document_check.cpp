#include "document_check.h"

#include <mutex>
#include <nlohmann/json.hpp>

#include "tola_agent.h"
#include "tola_json_parser.h"

namespace portal {

namespace {

// The agent answers code 1 with no text for a document it cannot read; say what is wrong with it.
std::string describeUnreadable(const std::string& text) {
    try {
        nlohmann::json doc = nlohmann::json::parse(text, nullptr, true, true);  // comments allowed
        if (!doc.is_array()) {
            return "the top level is not an array: a document is [ {group: {...}}, ... ]";
        }
        if (doc.empty()) {
            return "the array is empty";
        }
        return "";
    } catch (const nlohmann::json::parse_error& e) {
        size_t line = 1;
        size_t column = 1;
        for (size_t i = 0; i + 1 < e.byte && i < text.size(); ++i) {
            if (text[i] == '\n') {
                ++line;
                column = 1;
            } else {
                ++column;
            }
        }
        return "not JSON: syntax error at line " + std::to_string(line) + ", column " +
               std::to_string(column);
    }
}

}  // namespace

DocumentCheck CheckDocument(const std::string& text) {
    // The agent's objects share the platform's state (log, device-state cache): one at a time.
    static std::mutex serial;
    std::lock_guard<std::mutex> guard(serial);
    DocumentCheck result;
    TOLAAgent agent;
    agent.SetValidationDryRun(true);  // leaves the (scratch) device untouched
    TOLAJSONParser parser(&agent);
    result.code = parser.ProcessJSONData(text);
    if (result.code == 0) {
        result.code = agent.ValidateObjectParameters();
    }
    result.message = agent.GetErrorMessage();
    if (result.code == 1) {
        result.detail = describeUnreadable(text);
    }
    return result;
}

}  // namespace portal
