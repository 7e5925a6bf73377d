// The simulated device state: one JSON document (var/lib/ardo/device.json under the root) that
// holds everything the platform would ask the hardware or the device's other daemons.
// Shared by the agent and tola-devicectl: every change is a locked read-modify-write that
// replaces the file atomically.
#pragma once

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace ardo {

using json = nlohmann::json;

// Path of the document under the current root.
std::string deviceStatePath();

// The factory defaults: the merge of the embedded share/device/factory/*.json fragments.
const json& deviceFactoryState();

// The current document, created from the factory defaults when missing (or unreadable).
// Cached and shared: re-read only when the file changes, never copied (every log line's time
// stamp asks for the clock offset, so this is on a hot path).
std::shared_ptr<const json> deviceStateSnapshot();
// A copy of the current document, with the watchdog's keep-alive record (below) shown in its
// "watchdog" section.
json deviceStateRead();

// The watchdog's keep-alives are the one high-rate record of the device: kept out of the
// document (whose every change is a parse, a rewrite and an fsync of the whole) in a small file
// of their own, run/ardo/watchdog.json under the root, as the watchdog daemon keeps them in
// memory: {"keepalives": {name: count}, "last_keepalive": {name: {"time", "pid"}}}.
std::string deviceKeepAlivePath();
json deviceKeepAlives();
// Counts one keep-alive of name and records its time and pid. false when not written.
bool deviceKeepAlive(const char* name, long long time, int pid);

// Reads a value by JSON pointer ("/gps/enabled"), or the fallback when it is absent or of
// another kind.
template <typename T>
T deviceStateValue(const std::string& pointer, T fallback) {
    std::shared_ptr<const json> state = deviceStateSnapshot();
    json::json_pointer ptr(pointer);
    if (!state->contains(ptr)) {
        return fallback;
    }
    try {
        return state->at(ptr).get<T>();
    } catch (const json::exception&) {
        return fallback;
    }
}

// Applies a change under the file lock and writes the document atomically. false when the
// document could not be written.
bool deviceStateUpdate(const std::function<void(json& state)>& change);

// Sets one value by JSON pointer (creating the objects on the way).
bool deviceStateSet(const std::string& pointer, const json& value);

// Scripted faults: state["faults"][call] is either a number (every call returns it) or an array
// of numbers (each call takes the first; the entry goes away when the array is empty).
// true and *result set when the call is to fail with a scripted result.
bool deviceTakeFault(const char* call, int* result);

// Every platform call whose result a scripted fault can replace (the names deviceTakeFault is
// asked with), sorted. A unit test keeps it equal to the hooks in platform/host.
const std::vector<const char*>& deviceFaultCalls();

// Now, real time, as ISO 8601 UTC with milliseconds ("2026-11-23T10:39:30.123Z"); the stamp of the
// debug log's lines and the journals' entries.
std::string deviceTimestamp();

// Appends one line to a journal under var/lib/ardo/:
// {"call":..., "args":..., "result":..., "time": deviceTimestamp()}.
// calls.jsonl (the default) is for the platform calls that change the device; waits.jsonl
// records the platform sleeps, so that a test can count waits without reading them as changes.
void deviceJournal(const char* call, const json& args, int result, const char* journal = "calls.jsonl");

}  // namespace ardo
