// Reader of the agent configuration file (config.xml), element by element in a fixed order.
#include "tola_config.h"

#include "tola_log.h"
#include "xmldata.h"

int get_tolaagent_configuration(tolaagent_config_t* config) {
    TOLA_TRACE();
    if (config == nullptr) {
        return trace.Returning(1);
    }
    // Stops at the first element that cannot be read; later fields keep their values. Each
    // read is logged, failed or not, with the field as it then stands.
    int rc = xmldata_getstring("/Config/RequestTemplate", config->requestTemplate, TOLA_TEXT_MAX);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - read request string is %s %d\n", config->requestTemplate, rc);
    if (rc != 0) {
        return trace.Returning(rc);
    }
    rc = xmldata_getstring("/Config/CheckInTemplate", config->checkInTemplate, TOLA_TEXT_MAX);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - read check in string is %s %d\n", config->checkInTemplate, rc);
    if (rc != 0) {
        return trace.Returning(rc);
    }
    rc = xmldata_getstring("/Config/ReceiptTemplate", config->receiptTemplate, TOLA_TEXT_MAX);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - read receipt string is %s %d\n", config->receiptTemplate, rc);
    if (rc != 0) {
        return trace.Returning(rc);
    }
    rc = xmldata_getstring("/Config/requestDataUsageTemplate", config->requestDataUsageTemplate,
                           TOLA_TEXT_MAX);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - read request data usage string is %s %d\n",
         config->requestDataUsageTemplate, rc);
    if (rc != 0) {
        return trace.Returning(rc);
    }
    rc = xmldata_getstring("/Config/BaseEncryptionKey", config->baseEncryptionKey, TOLA_TEXT_MAX);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - read base encryption key string is %s %d\n", config->baseEncryptionKey,
         rc);
    if (rc != 0) {
        return trace.Returning(rc);
    }
    rc = xmldata_getuint32("/Config/CheckInInterval", &config->checkInInterval);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - read check in interval ushort is %u %d\n", config->checkInInterval, rc);
    if (rc != 0) {
        return trace.Returning(rc);
    }
    rc = xmldata_getuint32("/Config/CheckInRetryInterval", &config->checkInRetryInterval);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - read check in retry interval ushort is %u %d\n",
         config->checkInRetryInterval, rc);
    if (rc != 0) {
        return trace.Returning(rc);
    }
    rc = xmldata_getuint32("/Config/CheckInFailedRetries", &config->checkInFailedRetries);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - read check in failed retries ushort is %u %d\n",
         config->checkInFailedRetries, rc);
    if (rc != 0) {
        return trace.Returning(rc);
    }
    rc = xmldata_getuint32("/Config/RequestTimeout", &config->requestTimeout);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - read request timeout ushort is %u %d\n", config->requestTimeout, rc);
    if (rc != 0) {
        return trace.Returning(rc);
    }
    rc = xmldata_getuint32("/Config/DataUsageResponseWaitTime", &config->dataUsageResponseWaitTime);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - read data usage response wait time ushort is %u %d\n",
         config->dataUsageResponseWaitTime, rc);
    if (rc != 0) {
        return trace.Returning(rc);
    }
    rc = xmldata_getstring("/Config/SMS104CheckInTemplate", config->sms104CheckInTemplate, TOLA_TEXT_MAX);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - read sms 104 check in string is %s %d\n", config->sms104CheckInTemplate,
         rc);
    if (rc != 0) {
        return trace.Returning(rc);
    }
    rc = xmldata_getuint32("/Config/DataCallType", &config->dataCallType);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - read data call type is %u %d\n", config->dataCallType, rc);
    return trace.Returning(rc);
}
