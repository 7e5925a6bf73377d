// Device UI family (deviceui_*): what the device's own screen shows and allows.
//
// Getters return 0 on success and fill their value only then. Setters succeed with
// DEVICEUI_SUCCESS and return another value on failure.
#pragma once

#include <cstdint>

constexpr int DEVICEUI_SUCCESS = 1310720;

// Whether the network name and password are shown on the screen.
struct deviceui_wifi_info_display_t {
    uint8_t nameOnDisplay;
    uint8_t passwordOnDisplay;
};
static_assert(sizeof(deviceui_wifi_info_display_t) == 2, "display-info record layout");

int deviceui_get_primary_wifi_info_display_settings(deviceui_wifi_info_display_t* info);
int deviceui_set_primary_wifi_info_display_settings(const deviceui_wifi_info_display_t* info);
int deviceui_get_guest_wifi_info_display_settings(deviceui_wifi_info_display_t* info);
int deviceui_set_guest_wifi_info_display_settings(const deviceui_wifi_info_display_t* info);

// Whether Wi-Fi settings may be changed on the touch screen.
int deviceui_get_wifi_display_setting_enabled(int* enabled);
int deviceui_set_wifi_display_setting_enabled(int enabled);
// Whether device preferences may be changed on the screen.
int deviceui_get_display_setting_enabled(int* enabled);
int deviceui_set_display_setting_enabled(int enabled);
// Screen time-out in milliseconds, 0 never.
int deviceui_get_screen_timeout_settings(int* milliseconds);
int deviceui_set_screen_timeout_settings(int milliseconds);
int deviceui_get_notification_display_wakeup_setting_enabled(int* enabled);
int deviceui_set_notification_display_wakeup_setting_enabled(int enabled);
int deviceui_get_usb_connection_prompt_enabled(int* enabled);
int deviceui_set_usb_connection_prompt_enabled(int enabled);
int deviceui_get_file_sharing_display_setting_enabled(int* enabled);
int deviceui_set_file_sharing_display_setting_enabled(int enabled);
// Whether the admin password is shown on the screen.
int deviceui_get_admin_password_enabled(int* enabled);
int deviceui_set_admin_password_enabled(int enabled);
