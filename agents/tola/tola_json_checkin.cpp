// The portal's answers: the check-in answer (result code, version, interval, encrypted
// configuration, and the new key or URL of codes 94-97) and the key-and-URL answer of command 104.
#include <climits>
#include <cstdint>

#include "tola_app.h"
#include "tola_json_parser.h"
#include "tola_log.h"

namespace {

// The node under one top-level key, when it has the wanted kind.
yajl_val member(yajl_val root, const char* key, yajl_type kind) {
    const char* path[] = {key, nullptr};
    return tola_tree_get(root, path, kind);
}

// A number node that holds an integer within [low, high].
bool integerIn(yajl_val node, long long low, long long high, long long& value) {
    if (!tola_is_kind(node, yajl_t_number) || (node->u.number.flags & YAJL_NUMBER_INT_VALID) == 0) {
        return false;
    }
    value = node->u.number.i;
    return value >= low && value <= high;
}

// Frees the tree when the scope ends, whichever way it is left.
struct TreeGuard {
    yajl_val root;
    ~TreeGuard() { tola_tree_free(root); }
};

}  // namespace

bool TOLAJSONParser::ProcessCheckinResponse(std::string& response) {
    TOLA_TRACE();
    if (mApp == nullptr) {
        return trace.Returning(false);
    }
    TOLAApp& app = *mApp;
    // Version is taken only when the answer's is not empty; otherwise the stored version stays,
    // for the receipt's %VERSION% and the record alike.
    app.mVersion = tola_record_text(app.RuntimeConfig().version);
    app.mResultCode = 0;
    app.mCheckInIntervalHours = 0;
    app.mCheckInIntervalPresent = false;
    app.mNewEncryptionKey.clear();
    app.mNewCheckInUrl.clear();

    TreeGuard tree{tola_tree_parse(response)};
    response.clear();
    if (!tola_is_kind(tree.root, yajl_t_object)) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Invalid Checkin Configuration");
        return trace.Returning(false);
    }

    bool haveResult = false;
    bool haveVersion = false;
    long long value = 0;
    if (integerIn(member(tree.root, "ResultCode", yajl_t_number), INT_MIN, INT_MAX, value)) {
        app.mResultCode = static_cast<int>(value);
        haveResult = true;
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - ResultCode value %d", app.mResultCode);
    } else {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - NO checkin_confirmation_result code in the JSON data");
    }

    yajl_val version = member(tree.root, "Version", yajl_t_string);
    if (version != nullptr) {
        haveVersion = true;
        const char* text = tola_string(version);
        if (text == nullptr || text[0] == '\0') {
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - VERSION is null");
        } else {
            app.mVersion = text;
            TLOG(TOLA_LOG_INFO, "[%s]:[%s] - VERSION value %s", app.mVersion.c_str());
        }
    } else {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - NO checkin_confirmation_version in the JSON data");
    }

    yajl_val settings = member(tree.root, "Settings", yajl_t_object);
    if (settings != nullptr) {
        // An interval is hours; one that would overflow the timer's seconds is not an interval.
        if (integerIn(member(settings, "CheckinIntervalInHours", yajl_t_number), 0, UINT32_MAX / 3600,
                      value)) {
            app.mCheckInIntervalHours = static_cast<int>(value);
            app.mCheckInIntervalPresent = true;
            TLOG(TOLA_LOG_INFO, "[%s]:[%s] - Check in interval configuration value %d",
                 app.mCheckInIntervalHours);
        } else {
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - NO Checkin interval Configuration in the JSON data");
        }
    } else {
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - NO checkin_confirmation_settings code in the JSON data");
    }

    const char* configuration = tola_string(member(tree.root, "EncryptedConfiguration", yajl_t_string));
    if (configuration != nullptr && configuration[0] != '\0') {
        response = configuration;
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - configuration is received");
    } else {
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - configuration is empty");
    }

    const char* key = tola_string(member(tree.root, "DeviceEncryptionKey", yajl_t_string));
    if (key != nullptr) {
        app.mNewEncryptionKey = key;
    }
    const char* url = tola_string(member(tree.root, "CheckInUrl", yajl_t_string));
    if (url != nullptr) {
        app.mNewCheckInUrl = url;
    }

    if (!haveResult || !haveVersion) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Invalid Checkin Configuration");
        return trace.Returning(false);
    }
    return trace.Returning(true);
}

bool TOLAJSONParser::ProcessSMS104CheckinResponse(const std::string& text, std::string& key,
                                                  std::string& url) {
    TOLA_TRACE();
    TreeGuard tree{tola_tree_parse(text)};
    if (!tola_is_kind(tree.root, yajl_t_object)) {
        return trace.Returning(false);
    }
    const char* newKey = tola_string(member(tree.root, "DeviceEncryptionKey", yajl_t_string));
    const char* newUrl = tola_string(member(tree.root, "CheckInUrl", yajl_t_string));
    if (newKey == nullptr || newUrl == nullptr) {
        return trace.Returning(false);
    }
    key = newKey;
    url = newUrl;
    return trace.Returning(true);
}

std::string tola_mask_secrets(const std::string& text) {
    auto secretName = [](const std::string& name) {
        return name.find("Password") != std::string::npos || name.find("Key") != std::string::npos ||
               name.find("Answer") != std::string::npos;
    };
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    std::string out;
    out.reserve(text.size());
    bool maskNext = false;  // the value after a secret member's name, when it is a string
    const size_t n = text.size();
    for (size_t i = 0; i < n;) {
        if (text[i] != '"') {
            if (maskNext && !blank(text[i]) && text[i] != ':') {
                maskNext = false;  // not a string: nothing to hide
            }
            out += text[i++];
            continue;
        }
        size_t end = i + 1;  // the closing quote (or the end of an unterminated text)
        while (end < n && text[end] != '"') {
            end += text[end] == '\\' ? 2 : 1;
        }
        end = end < n ? end : n;
        size_t next = end + 1;
        while (next < n && blank(text[next])) {
            ++next;
        }
        bool isName = next < n && text[next] == ':';
        if (!isName && maskNext) {
            out += "\"********\"";
        } else {
            out.append(text, i, (end < n ? end + 1 : n) - i);
        }
        maskNext = isName && secretName(text.substr(i + 1, end - i - 1));
        i = end + 1;
    }
    return out;
}
