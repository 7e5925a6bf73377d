// Web UI family (webui_*): the web interface's login, advanced, log and language settings.
//
// Getters return 0 on success and fill their record only then. Setters succeed with
// WEBUI_SUCCESS and return another value on failure.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr int WEBUI_SUCCESS = 983040;

// Security questions (webui_login_settings_t::questionType).
constexpr uint32_t WEBUI_QUESTION_DATE_OF_BIRTH = 0;  // the answer is a date, mm/dd/yyyy
constexpr uint32_t WEBUI_QUESTION_MOTHERS_MAIDEN_NAME = 1;
constexpr uint32_t WEBUI_QUESTION_STREET = 2;

// Login settings of the web interface.
struct webui_login_settings_t {
    char password[256];     // up to 255 characters
    uint32_t questionType;  // WEBUI_QUESTION_*
    char question[256];
    char answer[256];
    uint32_t passwordOnDisplay;  // the password is shown on the device's screen
    uint8_t reserved[4];
};
static_assert(offsetof(webui_login_settings_t, questionType) == 256, "login record layout");
static_assert(offsetof(webui_login_settings_t, passwordOnDisplay) == 772, "login record layout");
static_assert(sizeof(webui_login_settings_t) == 780, "login record layout");

// Which parts of the device the admin password protects.
struct webui_advanced_settings_t {
    uint8_t passwordProtectionEnabled;
    uint8_t passwordOnGPS;
    uint8_t passwordOnNetworkSettings;
};
static_assert(sizeof(webui_advanced_settings_t) == 3, "advanced record layout");

struct webui_log_settings_t {
    uint32_t enabled;
    uint32_t durationDays;  // logs are deleted after 1 to 4 days
};
static_assert(sizeof(webui_log_settings_t) == 8, "log record layout");

// Language and formats. The codes are 1 for the first choice of each format and 2 for the
// second: date mm/dd/yyyy 1, dd/mm/yyyy 2; time 12 hr 1, 24 hr 2; distance feet 1, metres 2;
// numeric separator "3,234.00" 1, "3.234,00" 2.
struct webui_i18n_settings_t {
    char language[8];  // "en_US" or "es_MX"
    uint32_t dateFormat;
    uint32_t timeFormat;
    uint32_t distanceFormat;
    uint32_t numericSeparator;
    uint8_t reserved[8];
};
static_assert(offsetof(webui_i18n_settings_t, dateFormat) == 8, "i18n record layout");
static_assert(sizeof(webui_i18n_settings_t) == 32, "i18n record layout");

int webui_get_login_settings(webui_login_settings_t* settings);
int webui_set_login_settings(const webui_login_settings_t* settings);
int webui_get_advanced_settings(webui_advanced_settings_t* settings);
int webui_set_advanced_settings(const webui_advanced_settings_t* settings);
int webui_get_log_settings(webui_log_settings_t* settings);
int webui_set_log_settings(const webui_log_settings_t* settings);
int webui_get_i18n_settings(webui_i18n_settings_t* settings);
int webui_set_i18n_settings(const webui_i18n_settings_t* settings);

// One value of the web interface's application configuration (section, key) as text into value.
// 0 on success.
int webui_get_app_configurations(const char* section, const char* key, char* value, size_t valueSize);
