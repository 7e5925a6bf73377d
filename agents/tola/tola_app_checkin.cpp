// The check-in exchange: fill and encrypt the request, wrap it in the envelope, bring up the
// data call, send with a bounded number of attempts, keep the answer and hand it on.
#include <strings.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "http_helper.h"
#include "payload_cipher.h"
#include "sys_core.h"
#include "sys_datacall.h"
#include "tola_app.h"
#include "tola_json_parser.h"
#include "tola_log.h"

namespace {

constexpr uint32_t kNoAttempts = 4294967295u;
constexpr int kDnsTotalTimeoutSeconds = 30;
constexpr int kDnsRequestedCount = 20;

}  // namespace

void TOLAApp::PerformCheckIn() {
    TOLA_TRACE();
    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - performing check-in\n");

    agent.GetRuntimeConfig(runtimeConfig);
    if (runtimeConfig.checkInURL[0] == '\0') {
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Don't perform check-in, device hasn't been activated\n");
        return;
    }
    std::string url(runtimeConfig.checkInURL,
                    strnlen(runtimeConfig.checkInURL, sizeof runtimeConfig.checkInURL));
    resetMaintenanceThread();
    mRebootRequested = false;
    // The boot-time wait is spent once a check-in has started; the next store of the record
    // carries this to the agent's copy (see OnThreadNotify).
    runtimeConfig.bootupWaitDone = true;
    GetUpdatedDataUsage();
    RecordDataUsageInformation();

    std::string request;
    std::string checkIn;
    if (GetRequestParameters(request) != 0 || GetCheckInParameters(checkIn) != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to get request parameters for agent");
        return;
    }
    if (!ProcessRequest(checkIn, request) || !ProcessCheckIn(request, checkIn)) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - CheckIn Process failed\n");
        return;
    }

    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Contacting server now");
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - url is %s", url.c_str());
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - request is %s", request.c_str());
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - check in is %s", checkIn.c_str());
    HttpHelper client;
    int httpStatus = 0;
    client.SetTimeout(static_cast<long>(config.requestTimeout));

    if (config.checkInFailedRetries == kNoAttempts) {
        return;
    }
    const unsigned long long attempts = static_cast<unsigned long long>(config.checkInFailedRetries) + 1;
    for (unsigned long long attempt = 1; attempt <= attempts; ++attempt) {
        // A process stop ends the waits early (a retry wait, the data call's); the portal is then
        // not contacted again.
        if (sys_processStopRequested()) {
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Process is stopping, check-in abandoned");
            return;
        }
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Checking server - attempt [%d]", static_cast<int>(attempt));
        bool failed = false;
        if (CheckDataCallAndConnect() != 0) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - CheckDataCallAndConnect failed");
            failed = true;
        } else {
            PrepareRequest(client, url);
            if (sys_processStopRequested()) {
                TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Process is stopping, check-in abandoned");
                EndRequest();
                return;
            }
            std::string response;
            int rc = client.ExecuteGetRequest(url, checkIn, response, httpStatus);
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - check in server response httpStatusCode:[%d]", httpStatus);
            if (rc != 0) {
                failed = true;
            } else {
                TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - Server response is %s",
                     tola_mask_secrets(response).c_str());
                // A state file, re-read at start-up: written crash-safely like acl_config.xml, so a
                // power loss leaves the previous answer or this one, never a torn one. A failed
                // write is not reported.
                tola_write_file_atomic(
                    sys_fsPath(std::string(TOLA_DATA_DIR) + "/" + TOLA_DOWNLOADED_CONFIG_FILE_NAME),
                    response);
                runtimeConfig.aclConfigStatus = 1;
                agent.SetRuntimeConfig(runtimeConfig);
                if (SaveConfiguration(response)) {
                    return;
                }
                // A receipt went out and the device is going down: one receipt, one reboot.
                if (mRebootRequested) {
                    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Reboot requested, no further check-in attempt");
                    return;
                }
                // Not accepted: the next attempt follows at once, on the same data call.
                continue;
            }
        }
        if (failed) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - HTTP request failed\n");
            EndRequest();
            // The wait separates attempts: none after the last one.
            if (attempt < attempts) {
                sys_sleepSeconds(config.checkInRetryInterval);
            }
        }
    }
}

bool TOLAApp::ProcessCheckIn(std::string& request, std::string& checkIn) {
    TOLA_TRACE();
    if (!mIMEI.empty()) {
        ReplacePlaceholder(checkIn, "%IMEI%", mIMEI);
    }
    tola_trim_blanks(request);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - request is %s", request.c_str());

    const char* key;
    if (runtimeConfig.payloadEncryptionKey[0] == '\0') {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - Encrypt request by using factory provisioned encryption key");
        key = config.baseEncryptionKey;
    } else {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - Encrypt request by using encryption key obtained from the server");
        key = runtimeConfig.payloadEncryptionKey;
    }
    // The record fields are always terminated within their 128 bytes.
    std::string keyText(key, strnlen(key, TOLA_TEXT_SIZE));
    char* encrypted = nullptr;
    if (AesEncrypt(keyText.c_str(), request.c_str(), &encrypted) == 0 && encrypted != nullptr) {
        ReplacePlaceholder(checkIn, "%ENCRYPTEDREQUEST%", encrypted);
        std::free(encrypted);
    }
    return trace.Returning(true);
}

// Gives the client the data call's interface and, when the host resolves over the data call's
// own name servers, a forced resolution entry "host:port:address". Only for the apps-APN call.
void TOLAApp::PrepareRequest(HttpHelper& client, std::string url) {
    TOLA_TRACE();
    if (config.dataCallType != 0) {
        return;
    }
    client.SetInterface(interfaceName);

    char scheme[10] = {0};
    char host[513] = {0};
    char path[10] = {0};
    int port = 0;
    bool portGiven = false;
    bool matched = false;
    if (std::sscanf(url.c_str(), "%9[^:]://%512[^/]/%9[^\n]", scheme, host, path) == 3) {
        matched = true;
    } else if (std::sscanf(url.c_str(), "%9[^:]://%512[^:]:%i/%9[^\n]", scheme, host, &port, path) == 4) {
        matched = portGiven = true;
    } else if (std::sscanf(url.c_str(), "%9[^:]://%512[^:]:%i[^\n]", scheme, host, &port) == 3) {
        matched = portGiven = true;
    } else if (std::sscanf(url.c_str(), "%9[^:]://%512[^\n]", scheme, host) == 2) {
        matched = true;
    }
    if (!matched) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s: Failed to get host name from url.", __func__);
        return;
    }
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - [%s]:[%d] protocol:[%s], hostname:[%s].", __func__, __LINE__, scheme,
         host);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s: got host name from url.", __func__);
    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - [GET_DNS] %s: Server:%s, ifc:%s, ifcv6:%s, timeout:%d\n", __func__,
             host, interfaceName.c_str(), interfaceName.c_str(), kDnsTotalTimeoutSeconds);

    char result[SYS_RESOLVE_BUFFER_SIZE];
    int count = 0;
    bool resolved = false;
    for (int timeout = 2; timeout <= 16; timeout *= 2) {
        std::memset(result, 0, sizeof result);
        count = kDnsRequestedCount;
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - [CALL_DNS] %s: Calling DNS API with timeout:%d\n", __func__,
             timeout);
        int rc = sys_resolveHostName(host, TOLA_RESOLVER_FILE, interfaceName.c_str(), interfaceName.c_str(),
                                     timeout, result, &count);
        if (rc == 0 && count > 0) {
            TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s: DNS resolve success (count:%d)\n", __func__, count);
            resolved = true;
            break;
        }
        TLOG_SYS(TOLA_LOG_ERROR,
                 "[%s]:[%s] - %s: sys_resolveHostName(timeout=%d) failed, [rc:%d, count:%d]\n", __func__,
                 timeout, rc, count);
    }
    if (!resolved) {
        return;
    }
    if (!portGiven) {
        port = strcasecmp(scheme, "https") == 0 ? 443 : 80;
    }
    int slots = count < SYS_RESOLVE_MAX_ENTRIES ? count : SYS_RESOLVE_MAX_ENTRIES;
    for (int i = 0; i < slots; ++i) {
        const char* slot = result + static_cast<size_t>(i) * SYS_RESOLVE_ENTRY_SIZE;
        size_t length = strnlen(slot, SYS_RESOLVE_ENTRY_SIZE);
        if (length == 0 || length == SYS_RESOLVE_ENTRY_SIZE) {
            continue;
        }
        std::string entry = std::string(host) + ":" + std::to_string(port) + ":" + std::string(slot, length);
        client.SetResolveEntry(entry);
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - %s: CURL DNS resolve option value is (%s)\n", __func__,
                 entry.c_str());
        break;
    }
}

int TOLAApp::ExchangeOnce(const std::string& url, const std::string& body, std::string& answer) {
    HttpHelper client;
    client.SetTimeout(static_cast<long>(config.requestTimeout));
    PrepareRequest(client, url);
    int httpStatus = 0;
    client.ExecuteGetRequest(url, body, answer, httpStatus);
    EndRequest();
    return httpStatus;
}
