// Data-usage family (dua_*): the device's data-usage service. The service fetches the
// subscriber's usage figures from the carrier; the figures are described by one
// PlanDisplayInfo line per plan the device belongs to: its own "Line" plan and, on a family or
// business account, the "Shared" plan of all lines. When it has fresh figures it publishes
// "ardo.dua.usage.info" (binary; first 32-bit word the status, 0 = refreshed).
#pragma once

#include <cstddef>
#include <cstdint>

constexpr int DUA_MAX_PLANS = 4;
constexpr size_t DUA_TEXT_SIZE = 32;

// One plan line. Texts are NUL-terminated inside their fields.
struct dua_plan_display_info_t {
    char planType[DUA_TEXT_SIZE];         // "Line" or "Shared"
    char allowance[DUA_TEXT_SIZE];        // the plan's allowance, a decimal number ("10", "unlimited")
    char unit[DUA_TEXT_SIZE];             // unit of allowance and usage ("MB", "GB")
    char usage[DUA_TEXT_SIZE];            // Line: this line's usage; Shared: all lines' usage
    char cycleEndDate[DUA_TEXT_SIZE];     // last day of the billing cycle, "YYYY-MM-DD"
    char prePayIndicator[DUA_TEXT_SIZE];  // "Y" prepaid, "N" postpaid
};
static_assert(sizeof(dua_plan_display_info_t) == 192, "plan line layout");

struct dua_data_usage_info_t {
    uint32_t status;                     // 0 when the figures are valid
    uint32_t planCount;                  // lines used in PlanDisplayInfo
    char usageTimestamp[DUA_TEXT_SIZE];  // when the carrier computed the figures, UTC "YYYY-MM-DDTHH:MM:SSZ"
    dua_plan_display_info_t PlanDisplayInfo[DUA_MAX_PLANS];
};
static_assert(offsetof(dua_data_usage_info_t, usageTimestamp) == 8, "data usage layout");
static_assert(offsetof(dua_data_usage_info_t, PlanDisplayInfo) == 40, "data usage layout");
static_assert(sizeof(dua_data_usage_info_t) == 808, "data usage layout");

// The figures of the last refresh. 0 on success.
int dua_get_data_usage_info(dua_data_usage_info_t* info);

// Runs the service's start script, which makes it fetch fresh figures and then publish
// "ardo.dua.usage.info". Returns at once (0 when the script was started); the notice follows
// later, or never when the service cannot reach the carrier.
int dua_start_data_usage_script(void);
