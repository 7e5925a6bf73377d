// Host HTTP client on libcurl. The request text goes out as the body of a POST. HTTPS always
// verifies the peer certificate and the host name; the system's CA store is trusted, and
// ARDO_CA_FILE adds a bundle of its own (the tests' self-signed portal).
#include "http_helper.h"

#include <curl/curl.h>

#include <cstdlib>
#include <mutex>

#include "device_state.h"
#include "sys_core.h"
#include "vorn_dbg.h"

namespace {

std::once_flag gCurlInit;

struct Sink {
    std::string* body;
    bool overflow = false;
};

size_t writeBody(char* data, size_t size, size_t count, void* user) {
    Sink* sink = static_cast<Sink*>(user);
    size_t n = size * count;
    if (sink->body->size() + n > HttpHelper::kMaxResponseBytes) {
        sink->overflow = true;
        return 0;  // makes curl stop with CURLE_WRITE_ERROR
    }
    sink->body->append(data, n);
    return n;
}

// The CA directory that this libcurl trusts by default; kept beside an extra CA file, since
// CURLOPT_CAINFO alone would replace the system bundle.
const char* defaultCaPath() {
    const curl_version_info_data* info = curl_version_info(CURLVERSION_NOW);
    if (info != nullptr && info->capath != nullptr) {
        return info->capath;
    }
    return "/etc/ssl/certs";
}

// An exchange configured without a time limit still ends: a stalled portal must not hold the
// check-in thread, and with it the agent's stop, for ever.
constexpr long kUnlimitedExchangeSeconds = 120;

// Called by libcurl at least once a second while an exchange runs: a process stop ends it.
int abortOnStop(void*, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return sys_processStopRequested() ? 1 : 0;
}

}  // namespace

HttpHelper::HttpHelper() {
    std::call_once(gCurlInit, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

HttpHelper::~HttpHelper() = default;

int HttpHelper::ExecuteGetRequest(const std::string& url, const std::string& body, std::string& response,
                                  int& httpStatus) {
    httpStatus = 0;
    response.clear();
    int rc;
    if (ardo::deviceTakeFault("HttpHelper::ExecuteGetRequest", &rc)) {
        return rc;
    }
    CURL* curl = sys_processStopRequested() ? nullptr : curl_easy_init();
    if (curl == nullptr) {
        return 1;
    }
    Sink sink{&response};
    char error[CURL_ERROR_SIZE] = {0};
    struct curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    struct curl_slist* resolve = nullptr;

    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, writeBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &sink);
    curl_easy_setopt(curl, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(kMaxResponseBytes));
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, error);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
    const char* caFile = std::getenv("ARDO_CA_FILE");
    if (caFile != nullptr && *caFile != '\0') {
        curl_easy_setopt(curl, CURLOPT_CAINFO, caFile);
        curl_easy_setopt(curl, CURLOPT_CAPATH, defaultCaPath());
    }
    curl_easy_setopt(curl, CURLOPT_TIMEOUT,
                     mTimeoutSeconds > 0 ? static_cast<long>(mTimeoutSeconds) : kUnlimitedExchangeSeconds);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, abortOnStop);
    if (!mInterface.empty()) {
        curl_easy_setopt(curl, CURLOPT_INTERFACE, mInterface.c_str());
    }
    if (!mResolveEntry.empty()) {
        resolve = curl_slist_append(nullptr, mResolveEntry.c_str());
        curl_easy_setopt(curl, CURLOPT_RESOLVE, resolve);
    }

    CURLcode result = curl_easy_perform(curl);
    long status = 0;
    if (result == CURLE_OK) {
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        httpStatus = static_cast<int>(status);
    } else {
        vorn_dbg_log(3, "[%s]:[%s] - HttpHelper: %s: %s (curl %d)%s", "TOLA", vorn_dbg_get_level_name(3),
                     url.c_str(), error[0] ? error : curl_easy_strerror(result), static_cast<int>(result),
                     sink.overflow ? ", answer too large" : "");
        response.clear();
    }
    curl_slist_free_all(resolve);
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
    return result == CURLE_OK ? 0 : 1;
}
