// Linux platform internals: method calls on the system D-Bus (ModemManager, logind) and the
// ModemManager look-ups the platform families share.
//
// The bus is the system bus, or the one ARDO_SYSTEM_BUS_ADDRESS names (tests run ModemManager
// and logind stand-ins on a private bus). Every call carries a time-out, so a service that hangs
// costs a failed platform call, never a hung agent.
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>

namespace ardo_linux {

using json = nlohmann::json;

constexpr const char* kMMService = "org.freedesktop.ModemManager1";
constexpr const char* kMMPath = "/org/freedesktop/ModemManager1";
constexpr const char* kMMModem = "org.freedesktop.ModemManager1.Modem";
constexpr const char* kMM3gpp = "org.freedesktop.ModemManager1.Modem.Modem3gpp";
constexpr const char* kMMCdma = "org.freedesktop.ModemManager1.Modem.ModemCdma";
constexpr const char* kMMSimple = "org.freedesktop.ModemManager1.Modem.Simple";
constexpr const char* kMMTime = "org.freedesktop.ModemManager1.Modem.Time";
constexpr const char* kMMMessaging = "org.freedesktop.ModemManager1.Modem.Messaging";
constexpr const char* kMMProfiles = "org.freedesktop.ModemManager1.Modem.Modem3gpp.ProfileManager";
constexpr const char* kMMSim = "org.freedesktop.ModemManager1.Sim";
constexpr const char* kMMSms = "org.freedesktop.ModemManager1.Sms";
constexpr const char* kMMBearer = "org.freedesktop.ModemManager1.Bearer";

// Time-outs of one call: ordinary look-ups, and bringing up a bearer (a modem may take tens of
// seconds to attach and get an address).
constexpr uint64_t kCallTimeoutUsec = 5ULL * 1000 * 1000;
constexpr uint64_t kConnectTimeoutUsec = 60ULL * 1000 * 1000;

// Opens a new connection to the system bus (or ARDO_SYSTEM_BUS_ADDRESS). nullptr on failure.
sd_bus* openSystemBus();

// Appends the call's arguments to the message; a negative errno on failure.
using Append = std::function<int(sd_bus_message*)>;

// Calls a method on the process's shared system-bus connection (serialised; reconnected after a
// failure). On success the reply's arguments, in order, are in *reply as a JSON array (object
// paths and texts as strings, dictionaries as objects, structures and arrays as arrays, byte
// arrays as arrays of numbers). On failure *error holds the D-Bus error name (or "" when the bus
// itself failed). true on success.
bool callMethod(const char* service, const std::string& path, const char* interface, const char* member,
                const Append& append, json* reply, std::string* error,
                uint64_t timeoutUsec = kCallTimeoutUsec);

// Every property of one interface of an object, as a JSON object. false when the object or the
// service is missing (or the call failed).
bool getAllProperties(const char* service, const std::string& path, const char* interface, json& properties);

// Reads the next complete value of a message (any D-Bus type) into out. > 0 when a value was
// read, 0 at the end of the current container, < 0 on error.
int readValue(sd_bus_message* m, json& out);

// The first modem ModemManager manages, with the properties of every interface it has
// ({interface: {property: value}}). false, with one log line, when ModemManager is missing or
// has no modem.
bool findModem(std::string& path, json& interfaces);

// A property of an interface of the modem found by findModem, or fallback.
template <typename T>
T modemProperty(const json& interfaces, const char* interface, const char* property, T fallback) {
    auto iface = interfaces.find(interface);
    if (iface == interfaces.end() || !iface->is_object()) {
        return fallback;
    }
    auto value = iface->find(property);
    if (value == iface->end()) {
        return fallback;
    }
    try {
        return value->get<T>();
    } catch (const json::exception&) {
        return fallback;
    }
}

// Logs a fault of a system service to the debug log and to the journal.
void logFault(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace ardo_linux
