// Linux platform: the bridge from ModemManager's signals to the device's message bus, on a
// thread of its own with its own system-bus connection.
//
// An SMS is announced by Messaging.Added; a message that is still arriving in parts is
// announced again through its State property turning "received", so both are watched. Each
// message is delivered once.
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "linux_events.h"
#include "msgbus_handler.h"
#include "system_bus.h"
#include "vorn_dbg.h"

namespace ardo_linux {

namespace {

constexpr uint32_t kSmsReceiving = 2;
constexpr uint32_t kSmsReceived = 3;

std::mutex gLifeMutex;
std::thread gThread;
int gStopFd = -1;

struct Bridge {
    MsgbusHandler publisher;
    bool published = false;
    std::set<std::string> pending;    // messages still arriving
    std::set<std::string> delivered;  // messages already handed on
};

void deliverSms(Bridge& bridge, const std::string& path) {
    if (bridge.delivered.count(path) != 0) {
        return;
    }
    json sms;
    if (!getAllProperties(kMMService, path, kMMSms, sms)) {
        logFault("the SMS %s cannot be read", path.c_str());
        return;
    }
    uint32_t state = sms.value("State", 0u);
    if (state == kSmsReceiving) {
        bridge.pending.insert(path);
        return;
    }
    if (state != kSmsReceived) {
        return;
    }
    bridge.pending.erase(path);
    bridge.delivered.insert(path);
    std::string text = sms.value("Text", std::string());
    vorn_dbg_log(6, "[LINUX]:[INFO] - SMS %s received (%zu characters)", path.c_str(), text.size());
    if (!bridge.published || bridge.publisher.PublishData("sms.msg.tola", text) != 0) {
        logFault("the SMS %s could not be handed on", path.c_str());
    }
}

int onAdded(sd_bus_message* m, void* user, sd_bus_error*) {
    const char* path = nullptr;
    int received = 0;
    if (sd_bus_message_read(m, "ob", &path, &received) >= 0 && received != 0 && path != nullptr) {
        deliverSms(*static_cast<Bridge*>(user), path);
    }
    return 0;
}

int onSmsChanged(sd_bus_message* m, void* user, sd_bus_error*) {
    Bridge& bridge = *static_cast<Bridge*>(user);
    const char* path = sd_bus_message_get_path(m);
    if (path != nullptr && bridge.pending.count(path) != 0) {
        deliverSms(bridge, path);
    }
    return 0;
}

int onTimeChanged(sd_bus_message* m, void* user, sd_bus_error*) {
    Bridge& bridge = *static_cast<Bridge*>(user);
    const char* text = nullptr;
    time_t seconds = 0;
    if (sd_bus_message_read(m, "s", &text) < 0 || text == nullptr || !parseNetworkTime(text, &seconds)) {
        seconds = 0;
    }
    int64_t value = static_cast<int64_t>(seconds);
    vorn_dbg_log(6, "[LINUX]:[INFO] - network time changed: %s", text != nullptr ? text : "?");
    if (!bridge.published || bridge.publisher.PublishData("modem2.time_change", &value, sizeof value) != 0) {
        logFault("the network time change could not be handed on");
    }
    return 0;
}

// A connection to the system bus with the bridge's matches; nullptr when the bus is missing.
sd_bus* watch(Bridge& bridge) {
    sd_bus* bus = openSystemBus();
    if (bus != nullptr &&
        (sd_bus_match_signal(bus, nullptr, kMMService, nullptr, kMMMessaging, "Added", onAdded, &bridge) <
             0 ||
         sd_bus_match_signal(bus, nullptr, kMMService, nullptr, "org.freedesktop.DBus.Properties",
                             "PropertiesChanged", onSmsChanged, &bridge) < 0 ||
         sd_bus_match_signal(bus, nullptr, kMMService, nullptr, kMMTime, "NetworkTimeChanged", onTimeChanged,
                             &bridge) < 0)) {
        bus = sd_bus_flush_close_unref(bus);
    }
    return bus;
}

// Without the system bus (not up yet, or restarted) the bridge tries again this often.
constexpr int kRetryMs = 5000;

void run(int stopFd, const std::shared_ptr<std::promise<void>>& ready) {
    Bridge bridge;
    bridge.published = bridge.publisher.Initialize() == 0;
    if (!bridge.published) {
        logFault("no message bus: SMS and network time changes will not be handed on");
    }
    sd_bus* bus = watch(bridge);
    if (bus == nullptr) {
        logFault("cannot watch ModemManager's signals (no system bus); trying again");
    }
    // From here on no SMS is missed: the starter may go on.
    ready->set_value();
    for (;;) {
        if (bus != nullptr) {
            // Drain everything queued before sleeping.
            int r;
            while ((r = sd_bus_process(bus, nullptr)) > 0) {
            }
            if (r < 0) {
                logFault("lost the system bus: SMS will not arrive until it is back");
                bus = sd_bus_flush_close_unref(bus);
            }
        }
        struct pollfd fds[2] = {{stopFd, POLLIN, 0}, {-1, 0, 0}};
        if (bus != nullptr) {
            fds[1].fd = sd_bus_get_fd(bus);
            fds[1].events = static_cast<short>(sd_bus_get_events(bus));
        }
        int n = poll(fds, 2, bus != nullptr ? -1 : kRetryMs);
        if ((n < 0 && errno != EINTR) || fds[0].revents != 0) {
            break;
        }
        if (bus == nullptr && n == 0 && (bus = watch(bridge)) != nullptr) {
            vorn_dbg_log(6, "[LINUX]:[INFO] - watching ModemManager's signals");
        }
    }
    sd_bus_flush_close_unref(bus);
    if (bridge.published) {
        bridge.publisher.Uninitialize();
    }
}

}  // namespace

void startModemEvents() {
    std::lock_guard<std::mutex> guard(gLifeMutex);
    if (gThread.joinable()) {
        return;
    }
    gStopFd = eventfd(0, EFD_CLOEXEC);
    if (gStopFd < 0) {
        logFault("cannot start the ModemManager bridge");
        return;
    }
    int fd = gStopFd;
    auto ready = std::make_shared<std::promise<void>>();
    std::future<void> started = ready->get_future();
    gThread = std::thread([fd, ready] { run(fd, ready); });
    // The bridge is watching once its matches are in place; a bus that does not answer within
    // the time-out of one call leaves it to come up on its own.
    if (started.wait_for(std::chrono::microseconds(kCallTimeoutUsec)) != std::future_status::ready) {
        logFault("the ModemManager bridge is slow to start");
    }
}

void stopModemEvents() {
    std::lock_guard<std::mutex> guard(gLifeMutex);
    if (!gThread.joinable()) {
        return;
    }
    uint64_t one = 1;
    if (write(gStopFd, &one, sizeof one) < 0) {
        // The thread cannot be told; it stays blocked in poll, so it is left behind.
        gThread.detach();
    } else {
        gThread.join();
    }
    close(gStopFd);
    gStopFd = -1;
}

}  // namespace ardo_linux
