// Bus notices, the simulated clock, scripted faults and state edits:
//   notify data-usage STATUS | notify time-change
//   clock set TIME            (epoch seconds or YYYY-MM-DDTHH:MM:SS, UTC)
//   fault set CALL RESULT...  | fault clear [CALL]
//   watch [CHANNEL...]        (print bus traffic until interrupted)
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>

#include "device_state.h"
#include "devicectl.h"
#include "msgbus_handler.h"

using ardo::json;

namespace {

const char* const kNotifyUsage = "notify data-usage STATUS | notify time-change   (publish a bus notice)";
const char* const kClockUsage =
    "clock set TIME   (device time := TIME, epoch seconds or YYYY-MM-DDTHH:MM:SS UTC)";
const char* const kFaultUsage =
    "fault set CALL RESULT... | fault clear [CALL] | fault list   (script platform call results; list the "
    "calls)";
const char* const kWatchUsage = "watch [CHANNEL...]   (print bus traffic until interrupted)";

bool parseInt(const std::string& text, long long& value) {
    if (text.empty()) {
        return false;
    }
    char* end = nullptr;
    value = std::strtoll(text.c_str(), &end, 10);
    return end != nullptr && *end == '\0';
}

int publish(const std::string& channel, const void* data, int length) {
    MsgbusHandler bus;
    if (bus.Initialize() != 0) {
        std::fprintf(stderr, "tola-devicectl: cannot connect to the bus (ARDO_BUS_ADDRESS)\n");
        return 1;
    }
    int rc = bus.PublishData(channel, data, length);
    bus.Uninitialize();
    if (rc != 0) {
        std::fprintf(stderr, "tola-devicectl: publishing on %s failed\n", channel.c_str());
        return 1;
    }
    return 0;
}

int runNotify(const devicectl::Args& args) {
    if (args.size() == 2 && args[0] == "data-usage") {
        long long status = 0;
        if (!parseInt(args[1], status)) {
            return devicectl::usageError(kNotifyUsage);
        }
        // Status word first, as the data-usage service sends it.
        uint32_t payload[2] = {static_cast<uint32_t>(status), 0};
        return publish("ardo.dua.usage.info", payload, sizeof payload);
    }
    if (args.size() == 1 && args[0] == "time-change") {
        int64_t now = static_cast<int64_t>(time(nullptr));
        return publish("modem2.time_change", &now, sizeof now);
    }
    if (!args.empty() && args[0] != "data-usage" && args[0] != "time-change") {
        return devicectl::refuseArgument("notify", args[0], kNotifyUsage);
    }
    return devicectl::usageError(kNotifyUsage);
}

int runClock(const devicectl::Args& args) {
    if (!args.empty() && args[0] != "set") {
        return devicectl::refuseArgument("clock", args[0], kClockUsage);
    }
    if (args.size() != 2) {
        return devicectl::usageError(kClockUsage);
    }
    long long target = 0;
    if (!parseInt(args[1], target)) {
        struct tm broken {};
        const char* end = strptime(args[1].c_str(), "%Y-%m-%dT%H:%M:%S", &broken);
        if (end == nullptr || *end != '\0') {
            return devicectl::usageError(kClockUsage);
        }
        target = static_cast<long long>(timegm(&broken));
    }
    long long offset = target - static_cast<long long>(time(nullptr));
    if (!ardo::deviceStateSet("/clock/offset_seconds", offset)) {
        return 1;
    }
    std::printf("clock offset %lld s\n", offset);
    return 0;
}

int runFault(const devicectl::Args& args) {
    if (args.size() >= 2 && args[0] == "set") {
        const auto& calls = ardo::deviceFaultCalls();
        if (std::find(calls.begin(), calls.end(), args[1]) == calls.end()) {
            std::fprintf(
                stderr,
                "tola-devicectl fault set: unknown platform call '%s' (tola-devicectl fault list shows "
                "them)\n",
                args[1].c_str());
            return 2;
        }
    }
    if (args.size() == 1 && args[0] == "list") {
        for (const char* call : ardo::deviceFaultCalls()) {
            std::printf("%s\n", call);
        }
        return 0;
    }
    if (args.size() >= 3 && args[0] == "set") {
        json results = json::array();
        for (size_t i = 2; i < args.size(); ++i) {
            long long value = 0;
            if (!parseInt(args[i], value)) {
                return devicectl::refuseArgument("fault", args[i], kFaultUsage);
            }
            results.push_back(value);
        }
        // One result: every call fails with it; several: one call each, in order.
        json entry = results.size() == 1 ? results[0] : results;
        return ardo::deviceStateUpdate([&](json& state) { state["faults"][args[1]] = entry; }) ? 0 : 1;
    }
    if (!args.empty() && args[0] == "clear" && args.size() <= 2) {
        return ardo::deviceStateUpdate([&](json& state) {
            if (args.size() == 1) {
                state["faults"] = json::object();
            } else if (state.contains("faults") && state["faults"].is_object()) {
                state["faults"].erase(args[1]);
            }
        })
                   ? 0
                   : 1;
    }
    if (!args.empty() && args[0] != "set" && args[0] != "clear" && args[0] != "list") {
        return devicectl::refuseArgument("fault", args[0], kFaultUsage);
    }
    return devicectl::usageError(kFaultUsage);
}

volatile std::sig_atomic_t gStop = 0;
void onStop(int) {
    gStop = 1;
}

class Printer : public MsgbusCallbackInterface {
  public:
    void OnChannelNotify(const std::string& channel, const std::string& data) override {
        std::printf("%s s \"%s\"\n", channel.c_str(), data.c_str());
        std::fflush(stdout);
    }
    void OnChannelNotify(const std::string& channel, const int& data) override {
        std::printf("%s i %d\n", channel.c_str(), data);
        std::fflush(stdout);
    }
    void OnChannelNotify(const std::string& channel, void* data, int length) override {
        std::printf("%s ay %d", channel.c_str(), length);
        const unsigned char* bytes = static_cast<const unsigned char*>(data);
        for (int i = 0; bytes != nullptr && i < length && i < 64; ++i) {
            std::printf(" %02x", bytes[i]);
        }
        std::printf("\n");
        std::fflush(stdout);
    }
};

int runWatch(const devicectl::Args& args) {
    devicectl::Args channels = args;
    if (channels.empty()) {
        channels = {"sms.msg.tola", "ardo.dua.usage.info", "modem2.time_change", "ardo.tola.new.settings",
                    "ardo.tola.acl"};
    }
    Printer printer;
    MsgbusHandler bus(&printer);
    if (bus.Initialize() != 0) {
        std::fprintf(stderr, "tola-devicectl: cannot connect to the bus (ARDO_BUS_ADDRESS)\n");
        return 1;
    }
    for (const std::string& channel : channels) {
        bus.RegisterForChannelSubscription(channel, true);
    }
    std::signal(SIGINT, onStop);
    std::signal(SIGTERM, onStop);
    std::printf("watching %zu channels\n", channels.size());
    std::fflush(stdout);
    while (gStop == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    bus.Uninitialize();
    return 0;
}

}  // namespace

DEVICECTL_VERB("notify", kNotifyUsage, runNotify);
DEVICECTL_VERB("clock", kClockUsage, runClock);
DEVICECTL_VERB("fault", kFaultUsage, runFault);
DEVICECTL_VERB("watch", kWatchUsage, runWatch);
