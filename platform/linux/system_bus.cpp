// Linux platform: the system-bus connection and the ModemManager look-ups.
#include "system_bus.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "bus_open.h"
#include "sys_core.h"
#include "vorn_dbg.h"

namespace ardo_linux {

namespace {

std::mutex gCallMutex;
sd_bus* gBus = nullptr;

int readBasic(sd_bus_message* m, char type, json& out) {
    union {
        uint8_t y;
        int b;
        int16_t n;
        uint16_t q;
        int32_t i;
        uint32_t u;
        int64_t x;
        uint64_t t;
        double d;
        const char* s;
    } v{};
    int r = sd_bus_message_read_basic(m, type, &v);
    if (r <= 0) {
        return r;
    }
    switch (type) {
        case 'y':
            out = v.y;
            break;
        case 'b':
            out = v.b != 0;
            break;
        case 'n':
            out = v.n;
            break;
        case 'q':
            out = v.q;
            break;
        case 'i':
            out = v.i;
            break;
        case 'u':
            out = v.u;
            break;
        case 'x':
            out = v.x;
            break;
        case 't':
            out = v.t;
            break;
        case 'd':
            out = v.d;
            break;
        case 'h':
            out = v.i;
            break;
        default:
            out = v.s != nullptr ? v.s : "";
            break;
    }
    return 1;
}

// Reads values until the end of the container that is entered, into an array.
int readSequence(sd_bus_message* m, json& out) {
    out = json::array();
    for (;;) {
        json item;
        int r = readValue(m, item);
        if (r < 0) {
            return r;
        }
        if (r == 0) {
            return 1;
        }
        out.push_back(std::move(item));
    }
}

}  // namespace

int readValue(sd_bus_message* m, json& out) {
    char type = 0;
    const char* contents = nullptr;
    int r = sd_bus_message_peek_type(m, &type, &contents);
    if (r <= 0) {
        return r;
    }
    if (type == 'v') {
        if ((r = sd_bus_message_enter_container(m, 'v', contents)) < 0) {
            return r;
        }
        if ((r = readValue(m, out)) < 0) {
            return r;
        }
        return sd_bus_message_exit_container(m) < 0 ? -1 : 1;
    }
    if (type == 'a' && contents != nullptr && contents[0] == '{') {
        if ((r = sd_bus_message_enter_container(m, 'a', contents)) < 0) {
            return r;
        }
        // The entry's signature without its braces.
        std::string entry(contents + 1, std::string(contents).size() - 2);
        out = json::object();
        while ((r = sd_bus_message_enter_container(m, 'e', entry.c_str())) > 0) {
            json key, value;
            if (readValue(m, key) <= 0 || readValue(m, value) <= 0) {
                return -1;
            }
            out[key.is_string() ? key.get<std::string>() : key.dump()] = std::move(value);
            if (sd_bus_message_exit_container(m) < 0) {
                return -1;
            }
        }
        if (r < 0) {
            return r;
        }
        return sd_bus_message_exit_container(m) < 0 ? -1 : 1;
    }
    if (type == 'a' || type == 'r') {
        if ((r = sd_bus_message_enter_container(m, type, contents)) < 0) {
            return r;
        }
        if ((r = readSequence(m, out)) < 0) {
            return r;
        }
        return sd_bus_message_exit_container(m) < 0 ? -1 : 1;
    }
    return readBasic(m, type, out);
}

sd_bus* openSystemBus() {
    sd_bus* bus = nullptr;
    int r = ardo::openBusFromEnvironment(&bus, "ARDO_SYSTEM_BUS_ADDRESS", sd_bus_open_system);
    if (r < 0) {
        sd_bus_unref(bus);
        return nullptr;
    }
    // Bounds every blocking call, the Hello included, even where a caller gives no time-out.
    sd_bus_set_method_call_timeout(bus, kCallTimeoutUsec);
    return bus;
}

bool callMethod(const char* service, const std::string& path, const char* interface, const char* member,
                const Append& append, json* reply, std::string* error, uint64_t timeoutUsec) {
    std::lock_guard<std::mutex> guard(gCallMutex);
    if (error != nullptr) {
        error->clear();
    }
    if (gBus != nullptr && sd_bus_is_open(gBus) <= 0) {
        sd_bus_flush_close_unref(gBus);
        gBus = nullptr;
    }
    if (gBus == nullptr && (gBus = openSystemBus()) == nullptr) {
        logFault("cannot connect to the system bus");
        return false;
    }
    sd_bus_message* call = nullptr;
    sd_bus_message* answer = nullptr;
    sd_bus_error err = SD_BUS_ERROR_NULL;
    int r = sd_bus_message_new_method_call(gBus, &call, service, path.c_str(), interface, member);
    if (r >= 0 && append) {
        r = append(call);
    }
    if (r >= 0) {
        r = sd_bus_call(gBus, call, timeoutUsec, &err, &answer);
    }
    bool ok = r >= 0;
    if (!ok && error != nullptr) {
        *error = err.name != nullptr ? err.name : "";
    }
    if (ok && reply != nullptr) {
        ok = readSequence(answer, *reply) > 0;
    }
    sd_bus_error_free(&err);
    sd_bus_message_unref(call);
    sd_bus_message_unref(answer);
    return ok;
}

bool getAllProperties(const char* service, const std::string& path, const char* interface, json& properties) {
    json reply;
    bool ok = callMethod(
        service, path, "org.freedesktop.DBus.Properties", "GetAll",
        [&](sd_bus_message* m) { return sd_bus_message_append(m, "s", interface); }, &reply, nullptr);
    if (!ok || reply.empty() || !reply[0].is_object()) {
        return false;
    }
    properties = reply[0];
    return true;
}

bool findModem(std::string& path, json& interfaces) {
    json reply;
    std::string error;
    if (!callMethod(kMMService, kMMPath, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects", nullptr,
                    &reply, &error)) {
        logFault("ModemManager is not reachable (%s)", error.empty() ? "no bus" : error.c_str());
        return false;
    }
    if (reply.empty() || !reply[0].is_object()) {
        return false;
    }
    // Object paths sort as texts, so the first modem is the one ModemManager numbered lowest.
    for (auto it = reply[0].begin(); it != reply[0].end(); ++it) {
        if (it->is_object() && it->contains(kMMModem)) {
            path = it.key();
            interfaces = *it;
            return true;
        }
    }
    logFault("ModemManager has no modem");
    return false;
}

void logFault(const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    vorn_dbg_log(3, "[LINUX]:[ERROR] - %s", text);
    vorn_dbg_syslog(3, "[LINUX]:[ERROR] - %s", text);
}

}  // namespace ardo_linux
