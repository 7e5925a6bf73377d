// Host data-usage service: the figures come from the device state ("data_usage"). Its start
// script publishes "ardo.dua.usage.info" from a short-lived thread, after
// "notice_delay_ms" (device milliseconds, so compressed by ARDO_TIME_SCALE), with the status
// "notice_status"; "notice": "never" makes it stay silent, as a service that cannot reach the
// carrier would.
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>

#include "device_state.h"
#include "dua.h"
#include "msgbus_handler.h"
#include "sys_core.h"

using ardo::json;

namespace {

constexpr const char* kUsageChannel = "ardo.dua.usage.info";

template <size_t N>
void copyField(char (&field)[N], const json& plan, const char* key) {
    std::string text;
    auto it = plan.find(key);
    if (it != plan.end() && it->is_string()) {
        text = it->get<std::string>();
    }
    size_t n = text.size() < N - 1 ? text.size() : N - 1;
    std::memcpy(field, text.data(), n);
    field[n] = '\0';
}

void publishNotice(uint32_t status) {
    // The notice carries the status word followed by the size of the usage record, so that a
    // reader can tell which record version the service filled.
    uint32_t payload[2] = {status, static_cast<uint32_t>(sizeof(dua_data_usage_info_t))};
    MsgbusHandler publisher;
    if (publisher.Initialize() == 0) {
        publisher.PublishData(kUsageChannel, payload, static_cast<int>(sizeof payload));
        publisher.Uninitialize();
    }
}

}  // namespace

int dua_get_data_usage_info(dua_data_usage_info_t* info) {
    int rc;
    if (ardo::deviceTakeFault("dua_get_data_usage_info", &rc)) {
        return rc;
    }
    if (info == nullptr) {
        return 1;
    }
    std::memset(info, 0, sizeof *info);
    json state = ardo::deviceStateRead();
    auto found = state.find("data_usage");
    if (found == state.end() || !found->is_object()) {
        return 1;
    }
    const json& usage = *found;
    info->status = ardo::deviceStateValue<uint32_t>("/data_usage/status", 0);
    copyField(info->usageTimestamp, usage, "usage_timestamp");
    auto plans = usage.find("plans");
    if (plans != usage.end() && plans->is_array()) {
        for (const json& plan : *plans) {
            if (info->planCount >= static_cast<uint32_t>(DUA_MAX_PLANS)) {
                break;
            }
            if (!plan.is_object()) {
                continue;
            }
            dua_plan_display_info_t& line = info->PlanDisplayInfo[info->planCount++];
            copyField(line.planType, plan, "type");
            copyField(line.allowance, plan, "allowance");
            copyField(line.unit, plan, "unit");
            copyField(line.usage, plan, "usage");
            copyField(line.cycleEndDate, plan, "cycle_end_date");
            copyField(line.prePayIndicator, plan, "prepay");
        }
    }
    return 0;
}

int dua_start_data_usage_script(void) {
    int rc;
    if (ardo::deviceTakeFault("dua_start_data_usage_script", &rc)) {
        ardo::deviceJournal("dua_start_data_usage_script", json::object(), rc);
        return rc;
    }
    std::string notice = ardo::deviceStateValue<std::string>("/data_usage/notice", "publish");
    uint32_t status = ardo::deviceStateValue<uint32_t>("/data_usage/notice_status", 0);
    unsigned int delayMs = ardo::deviceStateValue<unsigned int>("/data_usage/notice_delay_ms", 0);
    ardo::deviceJournal("dua_start_data_usage_script", {{"notice", notice}, {"status", status}}, 0);
    if (notice == "never") {
        return 0;
    }
    std::thread([status, delayMs] {
        sys_sleepMilliseconds(delayMs);
        publishNotice(status);
    }).detach();
    return 0;
}
