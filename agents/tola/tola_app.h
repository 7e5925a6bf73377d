// TOLAApp: the agent's process object. Owns the settings agent, the two timers, the two bus
// handlers and the configuration records; runs start-up, the quit wait, the bus dispatch, the
// timer callbacks and the check-in client. Split across tola_app*.cpp by concern.
#pragma once

#include <pthread.h>

#include <cstdint>
#include <string>

#include "maintenance_thread.h"
#include "msgbus_handler.h"
#include "tola_agent.h"
#include "tola_types.h"

class HttpHelper;

constexpr unsigned int TOLA_CHECKIN_TIMER_ID = 3456;
constexpr unsigned int TOLA_WATCHDOG_TIMER_ID = 6543;
constexpr uint32_t TOLA_DEFAULT_CHECKIN_INTERVAL_SECONDS = 86400;
constexpr uint32_t TOLA_DEFAULT_WATCHDOG_INTERVAL_SECONDS = 20;
constexpr const char* TOLA_APP_NAME = "tola";

// Channels of the device's message bus.
#define TOLA_CHANNEL_SMS "sms.msg.tola"
#define TOLA_CHANNEL_DATA_USAGE "ardo.dua.usage.info"
#define TOLA_CHANNEL_TIME_CHANGE "modem2.time_change"
#define TOLA_CHANNEL_NEW_SETTINGS "ardo.tola.new.settings"
// TOLA_CHANNEL_ACL ("ardo.tola.acl") is the settings agent's own (tola_agent.h).

// The command carried by an SMS on "sms.msg.tola" (its decrypted text begins "<NNN>").
enum TOLACommand {
    TOLA_COMMAND_INVALID = -1,
    TOLA_COMMAND_SET_PAYLOAD_SECURE_KEY = 101,
    TOLA_COMMAND_SET_CHECKIN_URL = 102,
    TOLA_COMMAND_CHECKIN_NOW = 103,
    TOLA_COMMAND_GET_SECURE_KEY_CHECKIN_URL = 104,
    TOLA_COMMAND_SET_APN = 150,
    TOLA_COMMAND_FACTORY_RESET = 200,
};

// Bounds of the SMS parser's text buffers (terminator included).
constexpr size_t TOLA_SMS_BUFFER_SIZE = 1024;

class TOLAApp : public MsgbusCallbackInterface, public MaintenanceThreadCallbackInterface {
  public:
    TOLAApp();
    virtual ~TOLAApp();
    TOLAApp(const TOLAApp&) = delete;
    TOLAApp& operator=(const TOLAApp&) = delete;

    // ---- Bus callbacks (tola_app_bus.cpp) ----
    void OnChannelNotify(const std::string& channel, const std::string& data) override;
    void OnChannelNotify(const std::string& channel, const int& data) override;
    void OnChannelNotify(const std::string& channel, void* data, int length) override;

    // ---- Timer callback (tola_app_timer.cpp) ----
    bool OnThreadNotify(unsigned int timerId) override;

    // ---- Lifecycle (tola_app.cpp) ----
    int Initialize();
    int Run();
    int Shutdown();
    bool ReadSettings();
    bool InitializeSettings();
    void InitializeAppWait();
    void WaitForQuitSignal();
    // Ends the quit wait (from the SIGTERM/SIGINT path), so that Run's stop sequence runs.
    void SignalQuit();
    bool GetAceDefaultsFlag(std::string& flag);
    bool ResetAceDefaultsFlag();
    bool InitializeSysInterface();
    bool UninitializeSysInterface();

    // ---- Bus subscriptions (tola_app_bus.cpp) ----
    void SubscribeForChannels(bool subscribe);
    // Entry point of an SMS received on "sms.msg.tola": key choice, parse and dispatch
    // (tola_app_sms.cpp).
    void HandleSmsCommand(const std::string& message);

    // ---- SMS commands and the key-and-URL fetch (tola_app_sms.cpp) ----
    TOLACommand ParseTOLACommand(const std::string& key, const std::string& sms, std::string& argument);
    void SetAPN(const std::string& apn);
    void PerformGetSecurityKeyCheckinURL(const std::string& url);

    // ---- Scheduling (tola_app_timer.cpp) ----
    int resetMaintenanceThread();
    int getRemainingSeconds(long long unsigned int& remaining);
    int getRemainingDays(int& days);

    // ---- Templates and placeholders (tola_app_templates.cpp) ----
    int GetFileContent(std::string path, std::string& content);
    int GetRequestParameters(std::string& request);
    int GetCheckInParameters(std::string& checkIn);
    int GetReceiptParameters(std::string& receipt);
    void ReplacePlaceholder(std::string& text, const std::string& placeholder, const std::string& value);
    void RecordModemInformation();
    bool ProcessRequest(std::string& checkIn, std::string& request);
    bool GetPayload(std::string& payload);

    // ---- Check-in exchange (tola_app_checkin.cpp) ----
    void PerformCheckIn();
    bool ProcessCheckIn(std::string& request, std::string& checkIn);
    void PrepareRequest(HttpHelper& client, std::string url);
    // One exchange on the data call that is up (the receipt, the key-and-URL fetch): prepares
    // the client, sends body to url, ends the data call whatever the outcome. The HTTP status.
    int ExchangeOnce(const std::string& url, const std::string& body, std::string& answer);

    // ---- Data calls (tola_app_datacall.cpp) ----
    int CheckDataCallAndConnect();
    bool EstablishInternetApnCall(unsigned int attempts);
    bool EstablishAdminApnCall(unsigned int retries);
    void DisconnectAdminApnCall();
    void EndRequest();
    bool CheckPreconditionsForRequest();

    // ---- Data usage (tola_app_datausage.cpp) ----
    void GetUpdatedDataUsage();
    // The two halves of GetUpdatedDataUsage: ask the service (false when no query is made:
    // preconditions not met, or the service did not start), then wait for its notice.
    bool RequestDataUsage();
    void WaitForDataUsage();
    void RecordDataUsageInformation();

    // ---- Response handling and receipt (tola_app_response.cpp) ----
    bool SaveConfiguration(std::string& response);
    bool ProcessReceipt(std::string& receipt, std::string& checkIn);
    // Set once a receipt's reboot has been asked for; the check-in then makes no further attempt.
    bool mRebootRequested = false;

    // ---- Parser results (written by TOLAJSONParser::ProcessCheckinResponse) ----
    std::string mVersion;           // the answer's Version
    int mResultCode = 0;            // the answer's ResultCode; then the apply outcome
    int mCheckInIntervalHours = 0;  // Settings/CheckinIntervalInHours
    bool mCheckInIntervalPresent = false;
    std::string mNewEncryptionKey;  // DeviceEncryptionKey of codes 94 and 95
    std::string mNewCheckInUrl;     // CheckInUrl of codes 96 and 97
    std::string mResultMessage;     // the apply outcome's message (receipt %ERRMSG%)

    // Accessors for tests and tools.
    TOLAAgent& Agent() { return agent; }
    MaintenanceThread& CheckInTimer() { return checkInTimer; }
    MaintenanceThread& WatchdogTimer() { return watchdogTimer; }
    const tolaagent_config_t& Config() const { return config; }
    tolaagent_config_t& MutableConfig() { return config; }
    tolaagent_runtime_config_t& RuntimeConfig() { return runtimeConfig; }
    uint32_t DataUsageWaitSeconds() const { return dataUsageWaitSeconds; }
    const std::string& InterfaceName() const { return interfaceName; }
    bool GotDataUsageInfo() const { return mGotDataUsageInfo; }

  private:
    // Members in declaration order.
    uint32_t dataUsageWaitSeconds = 0;
    TOLAAgent agent;
    MaintenanceThread checkInTimer;
    MaintenanceThread watchdogTimer;
    MsgbusHandler msgbusSubscriber;
    MsgbusHandler msgbusPublisher;
    pthread_cond_t quitCondition;
    pthread_mutex_t quitMutex;
    bool quitSignalled = false;
    bool appWaitInitialized = false;
    tolaagent_config_t config;
    tolaagent_runtime_config_t runtimeConfig;
    bool timeChangeHandled = false;
    bool mGotDataUsageInfo = false;
    bool mDataUsageRequested = false;  // a check-in waits for figures (under dataUsageMutex)
    pthread_cond_t dataUsageCondition;
    pthread_mutex_t dataUsageMutex;

    // Device information used as placeholders (refreshed by RecordModemInformation).
    std::string mModel;
    std::string mMEID;
    std::string mIMEI;
    std::string mESN;
    std::string mMacAddress;
    std::string mMDN;
    std::string mMIN;
    std::string mIMSI;
    std::string mFirmwareVersion;
    std::string mLatitude;
    std::string mLongitude;
    bool mIsRoaming = false;

    // Data-usage figures (filled by RecordDataUsageInformation).
    std::string mPlanType;
    std::string mAllowance;
    std::string mUnit;
    std::string mLineUsage;
    std::string mTotalShrUsage;
    std::string mCycleEndDt;
    std::string mUsageTimestamp;
    std::string mPrePayInd;

    // The network interface of the open apps-APN call; empty when none is open.
    std::string interfaceName;
};
