// tola-portal's memory: per device (by IMEI) the key it encrypts with, the queue of scripted
// answers and every request received, decrypted. "*" holds the answers for devices without a
// queue of their own.
#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

namespace portal {

using json = nlohmann::json;

// Now, as the portal's records and log lines carry it: ISO 8601, UTC, milliseconds.
std::string NowText();

// Where devices send the key-and-URL request of SMS command 104.
constexpr const char* kProvisionPath = "/provision";

struct Device {
    std::string key;           // what the device encrypts with now; empty = factory key
    std::deque<json> answers;  // scripted check-in answers, used front first
    json provision;            // answer to the key-and-URL request: {"DeviceEncryptionKey", "CheckInUrl"}
    json received = json::array();
};

// What the HTTP layer hands back to the device.
struct Reply {
    int status = 200;
    std::string body;
    std::string contentType = "application/json";
    std::string summary;  // one line for the console
};

class PortalState {
  public:
    explicit PortalState(std::string factoryKey) : mFactoryKey(std::move(factoryKey)) {}

    // Loads a scenario: {"factory_key": K, "devices": {IMEI or "*": {"answers": [...],
    // "provision": {...}, "key": K}}}. false (with why) when it is not one.
    bool LoadScenario(const json& scenario, std::string& why);
    // Appends one answer or an array of them to the queue of imei ("*": every device without a
    // queue of its own); returns the answers as queued (an array).
    json AddAnswers(const std::string& imei, const json& answers);
    void SetProvision(const std::string& imei, const json& provision);
    json Received(const std::string& imei);
    json Devices();
    void Reset();
    // Everything the console shows, copied under the lock: {"factory_key", "devices": {IMEI:
    // {"key", "answers", "provision", "received"}}}.
    json Snapshot();

    // One request from a device: a check-in or receipt envelope, or a key-and-URL request.
    Reply Handle(const std::string& path, const std::string& body);

  private:
    Reply HandleEnvelope(const std::string& path, const json& envelope, const std::string& body);
    Reply HandleProvisioning(const std::string& path, const json& request);
    json NextAnswer(Device& device);
    Device& DeviceFor(const std::string& imei);
    std::string Decrypt(const std::string& key, const std::string& text);
    std::string Encrypt(const std::string& key, const std::string& text);
    const std::string& KeyOf(const Device& device) const {
        return device.key.empty() ? mFactoryKey : device.key;
    }

    std::mutex mMutex;
    std::string mFactoryKey;
    std::map<std::string, Device> mDevices;
    int mGeneratedKeys = 0;
};

}  // namespace portal
