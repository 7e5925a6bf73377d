// SMS commands: "<TOLA><" + encrypted command + ">" on "sms.msg.tola", decrypted with the key the
// portal handed out or else the factory key, then acted on (key, URL, check in now, key-and-URL
// fetch, APN, factory reset). Runs on the bus delivery thread; check-ins are only woken here,
// never run, except for the key-and-URL exchange of command 104, which runs on this thread.
#include <cstdlib>
#include <cstring>

#include "http_helper.h"
#include "payload_cipher.h"
#include "sys_core.h"
#include "sys_datacall.h"
#include "sys_settings.h"
#include "tola_app.h"
#include "tola_json_parser.h"
#include "tola_log.h"

namespace {

constexpr const char kSmsPrefix[] = "<TOLA><";
constexpr size_t kSmsPrefixLength = sizeof kSmsPrefix - 1;
// Prefix and the final ">".
constexpr size_t kSmsFrameLength = kSmsPrefixLength + 1;
constexpr size_t kCodeLength = 5;

// Copies text into a fixed buffer, cut so that the terminator always fits.
void copyBounded(char (&dst)[TOLA_SMS_BUFFER_SIZE], const char* src, size_t length) {
    std::memset(dst, 0, sizeof dst);
    std::memcpy(dst, src, length < sizeof dst ? length : sizeof dst - 1);
}

// What the log says when a command's text is refused because the record file could not hold it
// (a "<" or "&", say): the stored value stays.
constexpr const char kUnstorableKey[] =
    "New encryption key refused, it cannot be stored; the old key is kept";
constexpr const char kUnstorableUrl[] = "New check-in URL refused, it cannot be stored; the old URL is kept";
constexpr const char kUnstorableKeyOrUrl[] =
    "New encryption key and check-in URL refused, one cannot be stored; the old ones are kept";

// Clears a whole record field, then stores at most 127 characters of text in it.
void storeText(char (&field)[TOLA_TEXT_SIZE], const char* text) {
    std::memset(field, 0, sizeof field);
    tola_copy_text(field, text);
}

}  // namespace

TOLACommand TOLAApp::ParseTOLACommand(const std::string& key, const std::string& sms, std::string& argument) {
    TOLA_TRACE();
    char encrypted[TOLA_SMS_BUFFER_SIZE];
    char commandData[TOLA_SMS_BUFFER_SIZE];
    std::memset(encrypted, 0, sizeof encrypted);
    std::memset(commandData, 0, sizeof commandData);

    // The body must fit the buffer whole: a cut body would decrypt to something else, or not at
    // all, so an over-long one is refused before any decryption.
    if (sms.size() < kSmsFrameLength || sms.compare(0, kSmsPrefixLength, kSmsPrefix) != 0 ||
        sms.back() != '>' || sms.size() - kSmsFrameLength >= sizeof encrypted) {
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - %s - Invalid TOLA SMS %s", trace.Signature(), sms.c_str());
        return trace.Returning(TOLA_COMMAND_INVALID);
    }
    copyBounded(encrypted, sms.data() + kSmsPrefixLength, sms.size() - kSmsFrameLength);
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s - SMS Encrypted payload %s", trace.Signature(), encrypted);

    char* decrypted = nullptr;
    AesDecrypt(key.c_str(), encrypted, &decrypted);
    if (decrypted == nullptr || decrypted[0] == '\0') {
        std::free(decrypted);
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - %s - Failed to decrypt TOLA SMS [%s]", trace.Signature(),
                 sms.c_str());
        return trace.Returning(TOLA_COMMAND_INVALID);
    }
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s - SMS Decrypted payload %s", trace.Signature(), decrypted);

    const size_t length = std::strlen(decrypted);
    const char* rest = length >= kCodeLength ? decrypted + kCodeLength : decrypted + length;
    auto startsWith = [&](const char* code) { return std::strncmp(decrypted, code, kCodeLength) == 0; };
    TOLACommand command = TOLA_COMMAND_INVALID;
    if (startsWith("<101>")) {
        command = TOLA_COMMAND_SET_PAYLOAD_SECURE_KEY;
        copyBounded(commandData, rest, std::strlen(rest));
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s - TOLA_COMMAND_SET_PAYLOAD_SECURE_KEY %s", trace.Signature(),
             commandData);
    } else if (startsWith("<102>")) {
        command = TOLA_COMMAND_SET_CHECKIN_URL;
        copyBounded(commandData, rest, std::strlen(rest));
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s - TOLA_COMMAND_SET_CHECKIN_URL %s", trace.Signature(),
             commandData);
    } else if (std::strcmp(decrypted, "<103>") == 0) {
        std::free(decrypted);
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s - TOLA_COMMAND_CHECKIN_NOW", trace.Signature());
        return trace.Returning(TOLA_COMMAND_CHECKIN_NOW);
    } else if (startsWith("<104>")) {
        command = TOLA_COMMAND_GET_SECURE_KEY_CHECKIN_URL;
        copyBounded(commandData, rest, std::strlen(rest));
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s - TOLA_COMMAND_GET_SECURE_KEY_CHECKIN_URL %s", trace.Signature(),
             commandData);
    } else if (startsWith("<150>")) {
        command = TOLA_COMMAND_SET_APN;
        copyBounded(commandData, rest, std::strlen(rest));
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s - TOLA_COMMAND_SET_APN %s", trace.Signature(), commandData);
    } else if (startsWith("<200>")) {
        copyBounded(commandData, rest, std::strlen(rest));
        // One character ("0" for no check-in after the reset, another digit for one); the
        // byte tests are the device's own and let nothing longer through.
        bool accepted = std::strlen(commandData) == 1 || commandData[0] == 0 || commandData[0] == 1;
        command = accepted ? TOLA_COMMAND_FACTORY_RESET : TOLA_COMMAND_INVALID;
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s - TOLA_COMMAND_FACTORY_RESET %s", trace.Signature(), commandData);
    } else {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s - TOLA_COMMAND_INVALID", trace.Signature());
    }
    std::free(decrypted);

    if (commandData[0] == '\0') {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s - SMS invalid command data", trace.Signature());
        return trace.Returning(TOLA_COMMAND_INVALID);
    }
    argument = commandData;
    return trace.Returning(command);
}

void TOLAApp::HandleSmsCommand(const std::string& message) {
    TOLA_TRACE();
    std::string argument;
    TOLACommand command = TOLA_COMMAND_INVALID;
    // The key the portal handed out first; a command it does not open is tried once more with
    // the factory key (a device that lost its key can still be reached).
    if (runtimeConfig.payloadEncryptionKey[0] != '\0') {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - Using encryption key obtained from the server to get SMS command");
        command = ParseTOLACommand(tola_record_text(runtimeConfig.payloadEncryptionKey), message, argument);
    }
    if (command == TOLA_COMMAND_INVALID) {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - Using factory provisioned encryption key to get SMS command");
        command = ParseTOLACommand(tola_record_text(config.baseEncryptionKey), message, argument);
    }

    switch (command) {
        case TOLA_COMMAND_SET_PAYLOAD_SECURE_KEY:
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - device specific key SMS received\n");
            if (!tola_storable_text(argument.c_str(), TOLA_TEXT_MAX)) {
                TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s\n", kUnstorableKey);
                break;
            }
            storeText(runtimeConfig.payloadEncryptionKey, argument.c_str());
            agent.SetRuntimeConfig(runtimeConfig);
            break;
        case TOLA_COMMAND_SET_CHECKIN_URL:
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - check-in URL SMS received\n");
            if (!tola_storable_text(argument.c_str(), TOLA_TEXT_MAX)) {
                TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s\n", kUnstorableUrl);
                break;
            }
            storeText(runtimeConfig.checkInURL, argument.c_str());
            runtimeConfig.checkInFlag = true;
            agent.SetRuntimeConfig(runtimeConfig);
            checkInTimer.SignalTimerThread();
            break;
        case TOLA_COMMAND_CHECKIN_NOW:
            // The timer checks in only when the check-in flag is set; this command leaves it.
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Force check-in SMS received\n");
            checkInTimer.SignalTimerThread();
            break;
        case TOLA_COMMAND_GET_SECURE_KEY_CHECKIN_URL:
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Get security key and checkin url SMS received\n");
            PerformGetSecurityKeyCheckinURL(argument);
            break;
        case TOLA_COMMAND_SET_APN:
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - APN SMS received\n");
            SetAPN(argument);
            break;
        case TOLA_COMMAND_FACTORY_RESET: {
            long value = std::strtol(argument.c_str(), nullptr, 10);
            runtimeConfig.factoryResetFlag = true;
            runtimeConfig.checkInFlag = value != 0;
            if (value != 0) {
                TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - TOLA_COMMAND_FACTORY_RESET checkInFlag true");
            } else {
                // Without a check-in afterwards the device forgets its portal entirely.
                TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - TOLA_COMMAND_FACTORY_RESET checkInFlag false");
                storeText(runtimeConfig.payloadEncryptionKey, "");
                storeText(runtimeConfig.checkInURL, "");
                storeText(runtimeConfig.lastCheckInDate, "");
                runtimeConfig.checkInIntervalOverrideFlag = false;
                runtimeConfig.checkInInterval = 0;
            }
            storeText(runtimeConfig.version, "0");
            agent.SetRuntimeConfig(runtimeConfig);
            // Restores the device and restarts it; the flags are acted on at the next start.
            sys_restoreFactoryDefaults();
            break;
        }
        case TOLA_COMMAND_INVALID:
            TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Invalid SMS received\n");
            break;
        default:
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Unrecognized SMS command [%d] received",
                     static_cast<int>(command));
            break;
    }
}

// Writes the APN into the active profile. The new profile carries the APN alone: user name,
// password, authentication and address type are cleared, as the device has always done.
void TOLAApp::SetAPN(const std::string& apn) {
    TOLA_TRACE();
    int index = 0;
    int rc = sys_getActiveModemProfileIndex(&index);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s - sys_getActiveModemProfileIndex failed by returning %d",
                 trace.Signature(), rc);
        return;
    }
    sys_modem_profile_t current;
    std::memset(&current, 0, sizeof current);
    rc = sys_getModemProfile(SYS_MODEM_PROFILE_3GPP, index, &current);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s - sys_getModemProfile failed by returning %d",
                 trace.Signature(), rc);
        return;
    }

    rc = sys_cellularDataDisconnect(index);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR,
                 "[%s]:[%s] - %s - sys_cellularDataDisconnect failed to set null by returning %d",
                 trace.Signature(), rc);
    } else {
        TLOG(TOLA_LOG_DEBUG,
             "[%s]:[%s] - %s - sys_cellularDataDisconnect successfully disconnected the data call",
             trace.Signature());
    }

    sys_modem_profile_t profile;
    std::memset(&profile, 0, sizeof profile);
    std::strncpy(profile.apn, apn.c_str(), sizeof profile.apn - 1);
    rc = sys_setModemProfile(SYS_MODEM_PROFILE_3GPP, index, &profile);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - sys_setModemProfile  for index %d failed failed with code = %d",
                 index, rc);
    }

    rc = sys_cellularDataConnect(index);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR,
                 "[%s]:[%s] - %s - sys_cellularDataConnect failed to set null by returning %d",
                 trace.Signature(), rc);
    } else {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - sys_cellularDataConnect successfully connected the data call",
             trace.Signature());
    }
}

// Command 104: sends the IMEI, encrypted with the factory key, to the provisioning address and
// stores the payload key and portal URL of the answer. Both directions use the factory key,
// whatever key the device holds. Any failure leaves the runtime record as it was.
void TOLAApp::PerformGetSecurityKeyCheckinURL(const std::string& url) {
    TOLA_TRACE();
    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - performing get security key checkin URL\n");
    if (CheckDataCallAndConnect() != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - CheckDataCallAndConnect failed");
        return;
    }

    std::string request;
    std::string templateName = tola_record_text(config.sms104CheckInTemplate);
    if (GetFileContent(std::string(TOLA_ETC_DIR) + TOLA_AGENT_DIR_NAME + "/" + templateName, request) != 0) {
        // Nothing to send: the call brought up for the exchange is not left open.
        EndRequest();
        return;
    }
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - Read SMS 104 CheckIn template %s", request.c_str());

    RecordModemInformation();
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - Encrypt IMEI by using factory provisioned encryption key");
    const std::string factoryKey = tola_record_text(config.baseEncryptionKey);
    char* encryptedImei = nullptr;
    AesEncrypt(factoryKey.c_str(), mIMEI.c_str(), &encryptedImei);
    if (encryptedImei == nullptr || encryptedImei[0] == '\0') {
        std::free(encryptedImei);
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - sms 104 check in message creation failed.");
        EndRequest();
        return;
    }
    ReplacePlaceholder(request, "%ENCRYPTEDDEVICEIMEI%", encryptedImei);
    std::free(encryptedImei);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - sms 104 check in is %s", request.c_str());

    std::string response;
    int httpStatus = ExchangeOnce(url, request, response);
    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - SMS 104 check in server response httpStatusCode:[%d]", httpStatus);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - SMS 104 check in server response is %s", response.c_str());

    // A JSON string literal: the Base64 cipher text in double quotes.
    if (response.empty() || response[0] != '"') {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - SMS 104 server response is invalid");
        return;
    }
    std::string encrypted = response.substr(1);
    if (!encrypted.empty() && encrypted.back() == '"') {
        encrypted.pop_back();
    }
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - SMS 104 check in server encrypted response is %s", encrypted.c_str());
    char* decrypted = nullptr;
    // The cipher reports a text it cannot open with an empty result.
    if (AesDecrypt(factoryKey.c_str(), encrypted.c_str(), &decrypted) != 0 || decrypted == nullptr ||
        decrypted[0] == '\0') {
        std::free(decrypted);
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to decrypt SMS 104 server response");
        return;
    }
    std::string answer = decrypted;
    std::free(decrypted);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - SMS 104 check in server decrypted response is %s",
         tola_mask_secrets(answer).c_str());

    std::string newKey;
    std::string newUrl;
    TOLAJSONParser parser(this);
    if (!parser.ProcessSMS104CheckinResponse(answer, newKey, newUrl)) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to parse SMS 104 Check-in Response\n");
        return;
    }
    // Both or neither: a device must not pair a new key with an old portal, or the reverse.
    if (!tola_storable_text(newKey.c_str(), TOLA_TEXT_MAX) ||
        !tola_storable_text(newUrl.c_str(), TOLA_TEXT_MAX)) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s\n", kUnstorableKeyOrUrl);
        return;
    }
    TLOG_SYS(TOLA_LOG_NOTICE,
             "[%s]:[%s] - Setting encryption key and check-in url which are recived from sms 104\n");
    storeText(runtimeConfig.payloadEncryptionKey, newKey.c_str());
    storeText(runtimeConfig.checkInURL, newUrl.c_str());
    agent.SetRuntimeConfig(runtimeConfig);
    // The schedule takes up the new address at once.
    checkInTimer.SignalTimerThread();
}
