// TOLAApp lifecycle: construction, start-up with its boot-time decisions, the quit wait, and
// the stop sequence.
#include "tola_app.h"

#include <cstring>
#include <fstream>
#include <string>

#include "sys_core.h"
#include "tola_config.h"
#include "tola_log.h"
#include "watchdog.h"
#include "xmldata.h"

namespace {

std::string dataFilePath(const char* name) {
    return sys_fsPath(std::string(TOLA_DATA_DIR) + "/" + name);
}

}  // namespace

TOLAApp::TOLAApp()
    : agent(),
      checkInTimer(this, TOLA_DEFAULT_CHECKIN_INTERVAL_SECONDS, TOLA_CHECKIN_TIMER_ID),
      watchdogTimer(this, TOLA_DEFAULT_WATCHDOG_INTERVAL_SECONDS, TOLA_WATCHDOG_TIMER_ID),
      msgbusSubscriber(this),
      msgbusPublisher(nullptr) {
    TOLA_TRACE();
    mGotDataUsageInfo = false;
    std::memset(&config, 0, sizeof config);
    std::memset(&runtimeConfig, 0, sizeof runtimeConfig);
    pthread_mutex_init(&dataUsageMutex, nullptr);
    // Monotonic, so that the data-usage wait can use the clock seam's deadlines.
    sys_condInitMonotonic(&dataUsageCondition);
}

TOLAApp::~TOLAApp() {
    TOLA_TRACE();
    // The timer and bus threads call back into this object: stop them before its members go
    // (after a completed Run this finds them stopped already).
    checkInTimer.Shutdown();
    watchdogTimer.Shutdown();
    checkInTimer.WaitForCompletion();
    watchdogTimer.WaitForCompletion();
    msgbusSubscriber.Uninitialize();
    msgbusPublisher.Uninitialize();
    pthread_mutex_destroy(&dataUsageMutex);
    pthread_cond_destroy(&dataUsageCondition);
}

int TOLAApp::Initialize() {
    TOLA_TRACE();
    if (agent.Initialize() != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to initialize agent");
        return trace.Returning(1);
    }
    agent.GetRuntimeConfig(runtimeConfig);
    // config.xml has not been read yet, so this copies 0; the order is deliberate and the
    // value reaches the file only if a later step stores the record.
    if (!runtimeConfig.checkInIntervalOverrideFlag) {
        runtimeConfig.checkInInterval = config.checkInInterval;
    }
    if (!ReadSettings()) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to read settings for agent");
        return trace.Returning(1);
    }
    if (msgbusSubscriber.Initialize() != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to initialize msgbus");
        return trace.Returning(1);
    }
    msgbusPublisher.Initialize();

    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - All initialization is done. We are in business now");
    SubscribeForChannels(true);

    if (runtimeConfig.aclConfigStatus == 2) {
        // Settings were applied before the restart and not yet announced.
        msgbusPublisher.PublishData(TOLA_CHANNEL_NEW_SETTINGS, 1);
        runtimeConfig.aclConfigStatus = 0;
        agent.SetRuntimeConfig(runtimeConfig);
    } else if (runtimeConfig.aclConfigStatus == 1) {
        // A downloaded configuration is waiting to be applied. Its receipt carries the device's
        // identity, which no check-in has read yet in this run.
        RecordModemInformation();
        std::string content;
        GetFileContent(TOLA_DOWNLOADED_CONFIG_FILE_NAME, content);
        GetFileContent(std::string(TOLA_DATA_DIR) + "/" + TOLA_DOWNLOADED_CONFIG_FILE_NAME, content);
        SaveConfiguration(content);
    }

    // Intervals are in hours.
    if (runtimeConfig.checkInIntervalOverrideFlag) {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s:Set Deafault Runtime TimerDuration for CheckIn\n",
             trace.Signature());
        checkInTimer.SetInterval(runtimeConfig.checkInInterval * 3600);
    } else if (config.checkInInterval != 0) {
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s:Set Deafault TimerDuration for CheckIn\n", trace.Signature());
        checkInTimer.SetInterval(config.checkInInterval * 3600);
    }
    checkInTimer.Initialize();
    checkInTimer.Run();

    if (runtimeConfig.factoryResetFlag) {
        runtimeConfig.factoryResetFlag = false;
        agent.SetRuntimeConfig(runtimeConfig);
    }

    std::string aceDefaults;
    GetAceDefaultsFlag(aceDefaults);
    if (aceDefaults == "true") {
        // The device was reset by hand: the next ACL write drops every entry.
        agent.SetRestoreDefaultsFlag(true);
        if (runtimeConfig.checkInFlag) {
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - MANUAL FACTORY RESET : Check In Flag is true");
        } else {
            TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - MANUAL FACTORY RESET : check In Flag is false");
            tola_copy_text(runtimeConfig.checkInURL, "");
            tola_copy_text(runtimeConfig.payloadEncryptionKey, "");
            tola_copy_text(runtimeConfig.lastCheckInDate, "");
        }
        tola_copy_text(runtimeConfig.version, "0");
        agent.SetRuntimeConfig(runtimeConfig);
        ResetAceDefaultsFlag();
    }

    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s:Registering %s with watchdog", trace.Signature(), TOLA_APP_NAME);
    sys_watchdogApplicationRegister(TOLA_APP_NAME, 1);
    unsigned int watchdogSeconds = TOLA_DEFAULT_WATCHDOG_INTERVAL_SECONDS;
    sys_getWatchdogInterval(&watchdogSeconds);
    watchdogTimer.SetInterval(watchdogSeconds);
    watchdogTimer.Initialize();
    watchdogTimer.Run();

    InitializeAppWait();

    if (runtimeConfig.checkInFlag) {
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Performing CheckIn now at initialization.");
        runtimeConfig.bootupWaitDone = false;
        checkInTimer.SignalTimerThread();
    } else {
        runtimeConfig.bootupWaitDone = true;
        TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s: No need to Check-in ", trace.Signature());
    }
    return trace.Returning(0);
}

int TOLAApp::Run() {
    TOLA_TRACE();
    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - TOLA started\n");
    WaitForQuitSignal();

    TLOG(TOLA_LOG_INFO, "[%s]:[%s] - %s:Unregistering %s with watchdog", trace.Signature(), TOLA_APP_NAME);
    sys_watchdogApplicationRegister(TOLA_APP_NAME, 0);
    watchdogTimer.Shutdown();
    SubscribeForChannels(false);
    checkInTimer.Shutdown();
    msgbusSubscriber.Uninitialize();
    msgbusPublisher.Uninitialize();
    return trace.Returning(0);
}

int TOLAApp::Shutdown() {
    TOLA_TRACE();
    agent.Uninitialize();
    return trace.Returning(0);
}

bool TOLAApp::ReadSettings() {
    TOLA_TRACE();
    bool result = InitializeSettings();
    dataUsageWaitSeconds = 15;
    if (config.dataUsageResponseWaitTime != 0) {
        dataUsageWaitSeconds = config.dataUsageResponseWaitTime;
    }
    return trace.Returning(result);
}

bool TOLAApp::InitializeSettings() {
    TOLA_TRACE();
    std::string path = sys_fsPath(TOLA_CONFIG_FILE);
    if (xmldata_initialize(path.c_str(), path.c_str()) != 0) {
        TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - Failed to open configuration file: %s", path.c_str());
        return trace.Returning(false);
    }
    int rc = get_tolaagent_configuration(&config);
    if (rc != 0) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to read agent configuration : retcode %d", rc);
        xmldata_shutdown();
        return trace.Returning(false);
    }
    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - tola agent initialized with the following configurations:");
    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - checkInInterval: %u", config.checkInInterval);
    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - checkInRetryInterval: %u", config.checkInRetryInterval);
    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - checkInFailedRetries: %u", config.checkInFailedRetries);
    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - requestTimeout: %u", config.requestTimeout);
    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - baseEncryptionKey: %s", config.baseEncryptionKey);
    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - requestTemplate: %s", config.requestTemplate);
    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - checkInTemplate: %s", config.checkInTemplate);
    TLOG_SYS(TOLA_LOG_NOTICE, "[%s]:[%s] - receiptTemplate: %s", config.receiptTemplate);
    xmldata_shutdown();
    trace.Silence();
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - %s - END returning [%d]", trace.Signature(), 1);
    return true;
}

void TOLAApp::InitializeAppWait() {
    TOLA_TRACE();
    pthread_mutex_init(&quitMutex, nullptr);
    pthread_cond_init(&quitCondition, nullptr);
    appWaitInitialized = true;
}

void TOLAApp::WaitForQuitSignal() {
    TOLA_TRACE();
    if (!appWaitInitialized) {
        InitializeAppWait();
    }
    // The flag guards against spurious wake-ups and against a quit signalled before the wait.
    pthread_mutex_lock(&quitMutex);
    while (!quitSignalled) {
        pthread_cond_wait(&quitCondition, &quitMutex);
    }
    pthread_mutex_unlock(&quitMutex);
}

void TOLAApp::SignalQuit() {
    TOLA_TRACE();
    if (!appWaitInitialized) {
        // Nothing waits yet; Run's wait sees the flag and returns at once.
        quitSignalled = true;
        return;
    }
    pthread_mutex_lock(&quitMutex);
    quitSignalled = true;
    pthread_cond_signal(&quitCondition);
    pthread_mutex_unlock(&quitMutex);
}

bool TOLAApp::GetAceDefaultsFlag(std::string& flag) {
    TOLA_TRACE();
    std::string path = dataFilePath(TOLA_RESTORE_ACE_DEFAULTS_FILE_NAME);
    std::ifstream in(path);
    if (!in.is_open()) {
        TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - Failed to open restore_ace_defaults file %s", path.c_str());
        return trace.Returning(false);
    }
    std::string text;
    std::string line;
    while (std::getline(in, line)) {
        text += line;
    }
    tola_trim_blanks(text);
    TLOG(TOLA_LOG_DEBUG, "[%s]:[%s] - aceDefaults flag is %s", text.c_str());
    flag = text;
    return trace.Returning(true);
}

bool TOLAApp::ResetAceDefaultsFlag() {
    TOLA_TRACE();
    std::string path = dataFilePath(TOLA_RESTORE_ACE_DEFAULTS_FILE_NAME);
    if (!tola_write_file_atomic(path, "false")) {
        TLOG_SYS(TOLA_LOG_ERROR, "[%s]:[%s] - Failed to open restore ace defaults file %s", path.c_str());
        return trace.Returning(false);
    }
    return trace.Returning(true);
}

bool TOLAApp::InitializeSysInterface() {
    TOLA_TRACE();
    tola_sdk_bring_up("[%s]:[%s] -  sdk Initialize failed returned [%d]");
    return trace.Returning(true);
}

bool TOLAApp::UninitializeSysInterface() {
    TOLA_TRACE();
    return trace.Returning(tola_sdk_shut_down("[%s]:[%s] -  sdkShutdown failed returned : [%d]"));
}
