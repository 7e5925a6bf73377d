// Templates and placeholders: reading the message templates, gathering the device's identity,
// position and roaming state, and filling the check-in request with them.
#include <cstdio>
#include <cstring>
#include <fstream>

#include "sys_core.h"
#include "sys_device.h"
#include "tola_app.h"
#include "tola_log.h"

namespace {

// A record's text field as a string, never reading past the field.
template <size_t N>
std::string fieldText(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

// "/opt/ardo/etc/" + "tola" + "/" + the configured file name.
std::string templatePath(const char* fileName) {
    return std::string(TOLA_ETC_DIR) + TOLA_AGENT_DIR_NAME + "/" + fileName;
}

}  // namespace

// Reads a text file (a device path) line by line, each line followed by "\n". The last read,
// empty when the file ends in a line break, is appended too, so the text always gains one "\n".
int TOLAApp::GetFileContent(std::string path, std::string& content) {
    FnTrace trace(__PRETTY_FUNCTION__);
    std::ifstream in(sys_fsPath(path));
    if (!in.is_open()) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to open file %s", path.c_str());
        return trace.Returning(1);
    }
    std::string text;
    std::string line;
    while (true) {
        std::getline(in, line);
        if (in.bad()) {
            break;
        }
        text += line;
        text += "\n";
        if (in.eof() || in.fail()) {
            break;
        }
    }
    in.close();
    content = text;
    trace.Silence();
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - END returning [%d]", trace.Signature(), 0);
    return 0;
}

int TOLAApp::GetRequestParameters(std::string& request) {
    TOLA_TRACE();
    int rc;
    if (mGotDataUsageInfo) {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - Read from data usage supported template %s",
             config.requestDataUsageTemplate);
        rc = GetFileContent(templatePath(config.requestDataUsageTemplate), request);
    } else {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - Read from normal template %s", config.requestTemplate);
        rc = GetFileContent(templatePath(config.requestTemplate), request);
    }
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - request template is %s", request.c_str());
    return trace.Returning(rc);
}

int TOLAApp::GetCheckInParameters(std::string& checkIn) {
    TOLA_TRACE();
    int rc = GetFileContent(templatePath(config.checkInTemplate), checkIn);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - check-in request template is %s", checkIn.c_str());
    return trace.Returning(rc);
}

int TOLAApp::GetReceiptParameters(std::string& receipt) {
    TOLA_TRACE();
    int rc = GetFileContent(templatePath(config.receiptTemplate), receipt);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - receipt template is %s", receipt.c_str());
    return trace.Returning(rc);
}

// Only the first occurrence is replaced; a placeholder that is not there leaves the text as is.
void TOLAApp::ReplacePlaceholder(std::string& text, const std::string& placeholder,
                                 const std::string& value) {
    TOLA_TRACE();
    if (placeholder.empty()) {
        return;
    }
    size_t at = text.find(placeholder);
    if (at != std::string::npos) {
        text.replace(at, placeholder.size(), value);
    }
}

void TOLAApp::RecordModemInformation() {
    TOLA_TRACE();
    sys_hardware_info_t hardware;
    std::memset(&hardware, 0, sizeof hardware);
    int rc = sys_getHardwareInfo(&hardware);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - getHardwareInfo failed rc : [%d]\n", rc);
    }
    mModel = fieldText(hardware.model);
    mMEID = fieldText(hardware.meid);
    mIMEI = fieldText(hardware.imei);
    mESN = fieldText(hardware.esn);
    mMacAddress = fieldText(hardware.macAddress);

    sys_subscriber_info_t subscriber;
    std::memset(&subscriber, 0, sizeof subscriber);
    rc = sys_getSubscriberInfo(&subscriber);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - getSubscriberInfo failed rc : [%d]\n", rc);
    }
    mMDN = fieldText(subscriber.mdn);
    mMIN = fieldText(subscriber.min);
    mIMSI = fieldText(subscriber.imsi);

    sys_system_version_t version;
    std::memset(&version, 0, sizeof version);
    rc = sys_getSystemVersion(&version);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - getSystemVersion failed rc : [%d]\n", rc);
    } else {
        mFirmwareVersion = fieldText(version.firmwareVersion);
    }

    sys_cellular_service_stats_t stats;
    std::memset(&stats, 0, sizeof stats);
    rc = sys_getCellularServiceStats(&stats);
    if (rc != 0) {
        mIsRoaming = false;
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - getSystemVersion rc : [%d]\n", rc);
    } else {
        mIsRoaming = stats.roaming != 0;
    }

    int gpsEnabled = 0;
    rc = sys_getGPSEnabled(&gpsEnabled);
    if (rc != 0 && rc != 1 && rc != SYS_GPS_PRIVACY_NOT_ACCEPTED) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - %s failed with code = %d", "getGPSEnabled", rc);
    }
    if (gpsEnabled != 0) {
        sys_gps_fix_data_t fix;
        std::memset(&fix, 0, sizeof fix);
        sys_getGPSFixData(&fix);
        char number[64];
        std::snprintf(number, sizeof number, "%f", fix.latitude);
        mLatitude = number;
        std::snprintf(number, sizeof number, "%f", fix.longitude);
        mLongitude = number;
    } else {
        mLatitude.clear();
        mLongitude.clear();
    }

    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - MODEL - %s", mModel.c_str());
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - Modem information - BEGIN");
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - MDN - %s", mMDN.c_str());
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - MEID - %s", mMEID.c_str());
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - ESN - %s", mESN.c_str());
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - MIN - %s", mMIN.c_str());
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - IMEI - %s", mIMEI.c_str());
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - IMSI - %s", mIMSI.c_str());
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - FW Revision - %s", mFirmwareVersion.c_str());
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - MAC Address - %s", mMacAddress.c_str());
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - Latitude - %s", mLatitude.c_str());
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - Longitude - %s", mLongitude.c_str());
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - isRoaming - %d", mIsRoaming ? 1 : 0);
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - Modem information - END");
}

// Fills the request body and the check-in envelope. Device placeholders go into both (request
// first); the data-usage ones into the request only, and only with fresh figures.
bool TOLAApp::ProcessRequest(std::string& checkIn, std::string& request) {
    TOLA_TRACE();
    RecordModemInformation();

    auto both = [&](const char* placeholder, const std::string& value) {
        ReplacePlaceholder(request, placeholder, value);
        ReplacePlaceholder(checkIn, placeholder, value);
    };

    std::string version(runtimeConfig.version, strnlen(runtimeConfig.version, sizeof runtimeConfig.version));
    if (!version.empty()) {
        both("%VERSION%", version);
    }
    both("%IMSI%", mIMSI.size() >= 16 ? mIMSI.substr(0, 15) : mIMSI);
    std::string mdn = mMDN;
    if (!mdn.empty() && mdn[0] == '1') {
        mdn.erase(0, 1);
    }
    both("%MDN%", mdn);
    both("%MEID%", mMEID);
    both("%ESN%", mESN);
    both("%MIN%", mMIN);
    both("%IMEI%", mIMEI);
    both("%MODEL%", mModel);
    both("%FWVERSION%", mFirmwareVersion);
    both("%MACADDRESS%", mMacAddress);
    both("%ISROAMING%", mIsRoaming ? "1" : "0");
    both("%LATITUDE%", mLatitude);
    both("%LONGITUDE%", mLongitude);

    if (mGotDataUsageInfo) {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - Replace data usage template with values");
        ReplacePlaceholder(request, "%PLANTYPE%", mPlanType);
        ReplacePlaceholder(request, "%ALLOWANCE%", mAllowance);
        ReplacePlaceholder(request, "%UNIT%", mUnit);
        ReplacePlaceholder(request, "%LINEUSAGE%", mLineUsage);
        ReplacePlaceholder(request, "%TOTALSHRUSAGE%", mTotalShrUsage);
        ReplacePlaceholder(request, "%CYCLEENDDT%", mCycleEndDt);
        ReplacePlaceholder(request, "%USAGETIMESTAMP%", mUsageTimestamp);
        ReplacePlaceholder(request, "%PREPAYIND%", mPrePayInd);
    }
    return trace.Returning(true);
}

// A stand-by for feeding a local configuration document; no flow of the agent calls it.
bool TOLAApp::GetPayload(std::string& payload) {
    TOLA_TRACE();
    const char* path = "/opt/ardo/etc/tola/tola_sample_json";
    std::ifstream in(sys_fsPath(path));
    if (!in.is_open()) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to open request file %s", path);
        return trace.Returning(false);
    }
    std::string line;
    while (std::getline(in, line)) {
        payload += line;
    }
    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - payload is %s", payload.c_str());
    return trace.Returning(true);
}
