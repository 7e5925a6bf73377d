// Response handling: the portal's check-in answer changes interval, key, URL and check-in flag
// in the runtime record; a configuration that follows is decrypted, applied by the settings
// agent and confirmed with an encrypted receipt, and the receipt is followed by a reboot.
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "http_helper.h"
#include "payload_cipher.h"
#include "sys_core.h"
#include "tola_app.h"
#include "tola_json_parser.h"
#include "tola_log.h"

namespace {

// aclConfigStatus after a configuration: 2 once it was applied, so that the next start
// announces the new settings; 0 when it was not.
constexpr int32_t kAclStatusApplied = 2;
constexpr int32_t kAclStatusNone = 0;

// Outcome codes of a configuration that could not be applied (receipt %ERRCD%).
constexpr int kOutcomeNoConfiguration = 2;
constexpr int kOutcomeUndecryptable = 1;

}  // namespace

bool TOLAApp::SaveConfiguration(std::string& response) {
    TOLA_TRACE();
    TOLAJSONParser parser(this);
    bool result = true;
    bool configurationFollows = false;
    bool parsed = parser.ProcessCheckinResponse(response);
    if (!parsed) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to parse Check-in Response\n");
        // Nothing in the answer is acted on; the check-in loop tries again at once.
        return trace.Returning(false);
    }

    std::snprintf(runtimeConfig.lastCommand, sizeof runtimeConfig.lastCommand, "%d", mResultCode);

    if (mCheckInIntervalPresent &&
        (!runtimeConfig.checkInIntervalOverrideFlag ||
         runtimeConfig.checkInInterval != static_cast<uint32_t>(mCheckInIntervalHours))) {
        runtimeConfig.checkInInterval = static_cast<uint32_t>(mCheckInIntervalHours);
        runtimeConfig.checkInIntervalOverrideFlag = true;
        agent.SetRuntimeConfig(runtimeConfig);
        checkInTimer.SetInterval(static_cast<uint32_t>(mCheckInIntervalHours) * 3600u);
    }

    // A key or URL that is missing, empty or not storable would cut the device off from its
    // portal (nothing to check in to, or a record the next start throws away): keep the old one.
    if (mResultCode == 94 || mResultCode == 95) {
        if (mNewEncryptionKey.empty()) {
            TLOG_SYS(TOLA_LOG_ERROR,
                     "[%s]:[%s] - No new encryption key in the answer; the old key is kept\n");
        } else if (!tola_storable_text(mNewEncryptionKey.c_str(), TOLA_TEXT_MAX)) {
            TLOG_SYS(TOLA_LOG_ERROR,
                     "[%s]:[%s] - New encryption key refused, it cannot be stored; the old key is kept\n");
        } else {
            tola_copy_text(runtimeConfig.payloadEncryptionKey, mNewEncryptionKey.c_str());
            agent.SetRuntimeConfig(runtimeConfig);
        }
    }
    if (mResultCode == 96 || mResultCode == 97) {
        if (mNewCheckInUrl.empty()) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - No new check-in URL in the answer; the old URL is kept\n");
        } else if (!tola_storable_text(mNewCheckInUrl.c_str(), TOLA_TEXT_MAX)) {
            TLOG_SYS(TOLA_LOG_ERROR,
                     "[%s]:[%s] - New check-in URL refused, it cannot be stored; the old URL is kept\n");
        } else {
            tola_copy_text(runtimeConfig.checkInURL, mNewCheckInUrl.c_str());
            agent.SetRuntimeConfig(runtimeConfig);
        }
    }
    if (mResultCode == 98 || mResultCode == 99) {
        runtimeConfig.checkInFlag = false;
        agent.SetRuntimeConfig(runtimeConfig);
    }

    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Received following error code from TOLA portal");
    switch (mResultCode) {
        case 0:
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Success configuration follows");
            configurationFollows = true;
            break;
        case 1:
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Success no new configuration follows");
            break;
        case 2:
            TLOG_SYS(TOLA_LOG_NOTICE,
                     "[%s]:[%s] - Information received does not match with that available in portal");
            break;
        case 3:
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Incorrect device type");
            break;
        case 4:
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Incorrect imei");
            break;
        case 94:
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - New encrypt key config follows");
            configurationFollows = true;
            break;
        case 95:
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - New encrypt key no config follows");
            break;
        case 96:
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - New url config follows");
            configurationFollows = true;
            break;
        case 97:
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - New url no config follows");
            break;
        case 98:
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - New config disable check in flag");
            configurationFollows = true;
            break;
        case 99:
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - No new config disable check in flag");
            break;
        default:
            break;
    }

    if (!configurationFollows) {
        EndRequest();
        if (runtimeConfig.aclConfigStatus != kAclStatusApplied) {
            runtimeConfig.aclConfigStatus = kAclStatusNone;
            agent.SetRuntimeConfig(runtimeConfig);
        }
        return trace.Returning(true);
    }

    // A configuration follows: apply it, then confirm the outcome to the portal.
    mResultMessage.clear();
    if (response.empty()) {
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Configuration did not receive\n");
        mResultCode = kOutcomeNoConfiguration;
        result = false;
    } else {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - Encrypted configuration is (%s)", response.c_str());
        std::string key = runtimeConfig.payloadEncryptionKey[0] != '\0'
                              ? tola_record_text(runtimeConfig.payloadEncryptionKey)
                              : tola_record_text(config.baseEncryptionKey);
        char* decrypted = nullptr;
        if (AesDecrypt(key.c_str(), response.c_str(), &decrypted) != 0 || decrypted == nullptr) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Unable to decrypt configuration");
            mResultCode = kOutcomeUndecryptable;
            mResultMessage = "Unable to decrypt configuration";
        } else {
            std::string configuration = decrypted;
            std::free(decrypted);
            TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - Decrypted configuration is %s",
                 tola_mask_secrets(configuration).c_str());
            std::string errorMessage;
            int outcome = agent.ProcessResponse(configuration, errorMessage);
            mResultMessage = errorMessage;
            if (outcome != 0) {
                mResultCode = outcome;
                TLOG_SYS(TOLA_LOG_ERROR,
                         "[%s]:[%s] - Failed to apply configuration. Error code:%d Error Message:[%s]\n",
                         outcome, errorMessage.c_str());
            } else {
                TLOG_SYS(TOLA_LOG_NOTICE,
                         "[%s]:[%s] - Got response from server and Successfully applied configuration\n");
                mResultCode = 0;
                if (tola_storable_text(mVersion.c_str(), TOLA_TEXT_MAX)) {
                    tola_copy_text(runtimeConfig.version, mVersion.c_str());
                    agent.SetRuntimeConfig(runtimeConfig);
                } else {
                    TLOG_SYS(
                        TOLA_LOG_ERROR,
                        "[%s]:[%s] - New version refused, it cannot be stored; the old version is kept\n");
                }
            }
        }
    }

    // The receipt.
    agent.GetRuntimeConfig(runtimeConfig);
    std::string url = tola_record_text(runtimeConfig.checkInURL);
    if (!url.empty() && sys_processStopRequested()) {
        // The agent is stopping: no new exchange that could hold the stop up.
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Stop requested, config apply reply not sent\n");
    } else if (!url.empty()) {
        std::string receipt;
        std::string checkIn;
        if (GetReceiptParameters(receipt) != 0 || GetCheckInParameters(checkIn) != 0) {
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to get request parameters for agent");
        } else {
            ProcessReceipt(receipt, checkIn);
            std::string answer;
            int httpStatus = ExchangeOnce(url, checkIn, answer);
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - [%s]: config apply reply sent status:[%d].\n", __func__,
                     httpStatus);
        }
    }
    // Every configuration that reached the receipt ends in a reboot, applied or not; the line
    // reads the same either way.
    runtimeConfig.aclConfigStatus = mResultCode == 0 ? kAclStatusApplied : kAclStatusNone;
    agent.SetRuntimeConfig(runtimeConfig);
    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Configuration is applied successfully. Rebooting system.\n");
    mRebootRequested = true;
    sys_rebootSystem();
    return trace.Returning(result);
}

bool TOLAApp::ProcessReceipt(std::string& receipt, std::string& checkIn) {
    FnTrace trace(__PRETTY_FUNCTION__);
    if (!mIMEI.empty()) {
        ReplacePlaceholder(checkIn, "%IMEI%", mIMEI);
    }
    tola_trim_blanks(receipt);
    if (!mVersion.empty()) {
        ReplacePlaceholder(receipt, "%VERSION%", mVersion);
    }
    std::ostringstream code;
    code << mResultCode;
    if (!code.str().empty()) {
        ReplacePlaceholder(receipt, "%ERRCD%", code.str());
    }
    ReplacePlaceholder(receipt, "%ERRMSG%", mResultMessage);
    TLOG(TOLA_LOG_ERROR, "[%s]:[%s] - Config receipt - %s", receipt.c_str());

    std::string key;
    if (runtimeConfig.payloadEncryptionKey[0] == '\0') {
        TLOG(TOLA_LOG_DEBUG,
             "[%s]:[%s] - Encrypt config receipt by using factory provisioned encryption key");
        key = tola_record_text(config.baseEncryptionKey);
    } else {
        TLOG(TOLA_LOG_DEBUG,
             "[%s]:[%s] - Encrypt config receipt by using encryption key obtained from the server");
        key = tola_record_text(runtimeConfig.payloadEncryptionKey);
    }
    char* encrypted = nullptr;
    if (AesEncrypt(key.c_str(), receipt.c_str(), &encrypted) == 0 && encrypted != nullptr) {
        ReplacePlaceholder(checkIn, "%ENCRYPTEDREQUEST%", encrypted);
        std::free(encrypted);
    }
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - encrypted checkin receipt is %s", checkIn.c_str());
    return trace.Returning(true);
}
