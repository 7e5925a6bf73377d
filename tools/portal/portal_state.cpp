#include "portal_state.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "payload_cipher.h"

namespace portal {

std::string NowText() {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm utc {};
    gmtime_r(&now.tv_sec, &utc);
    char text[40];
    size_t n = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(text + n, sizeof text - n, ".%03ldZ", now.tv_nsec / 1000000);
    return text;
}

namespace {

std::string stringOr(const json& j, const char* key, const std::string& fallback) {
    auto it = j.find(key);
    return it != j.end() && it->is_string() ? it->get<std::string>() : fallback;
}

}  // namespace

bool PortalState::LoadScenario(const json& scenario, std::string& why) {
    if (!scenario.is_object()) {
        why = "a scenario is a JSON object";
        return false;
    }
    std::lock_guard<std::mutex> guard(mMutex);
    if (scenario.contains("factory_key") && scenario["factory_key"].is_string()) {
        mFactoryKey = scenario["factory_key"].get<std::string>();
    }
    auto devices = scenario.find("devices");
    if (devices == scenario.end()) {
        return true;
    }
    if (!devices->is_object()) {
        why = "\"devices\" is an object keyed by IMEI (or \"*\")";
        return false;
    }
    for (auto& [imei, entry] : devices->items()) {
        if (!entry.is_object()) {
            why = "device " + imei + " is not an object";
            return false;
        }
        Device& device = mDevices[imei];
        if (entry.contains("answers")) {
            if (!entry["answers"].is_array()) {
                why = "answers of " + imei + " are not an array";
                return false;
            }
            for (const json& answer : entry["answers"]) {
                device.answers.push_back(answer);
            }
        }
        if (entry.contains("provision")) {
            device.provision = entry["provision"];
        }
        device.key = stringOr(entry, "key", device.key);
    }
    return true;
}

json PortalState::AddAnswers(const std::string& imei, const json& answers) {
    std::lock_guard<std::mutex> guard(mMutex);
    Device& device = mDevices[imei];
    json queued = answers.is_array() ? answers : json::array({answers});
    for (const json& answer : queued) {
        device.answers.push_back(answer);
    }
    return queued;
}

void PortalState::SetProvision(const std::string& imei, const json& provision) {
    std::lock_guard<std::mutex> guard(mMutex);
    mDevices[imei].provision = provision;
}

json PortalState::Received(const std::string& imei) {
    std::lock_guard<std::mutex> guard(mMutex);
    if (!imei.empty()) {
        auto it = mDevices.find(imei);
        return it == mDevices.end() ? json::array() : it->second.received;
    }
    json all = json::array();
    for (auto& [id, device] : mDevices) {
        for (const json& r : device.received) {
            all.push_back(r);
        }
    }
    return all;
}

json PortalState::Devices() {
    std::lock_guard<std::mutex> guard(mMutex);
    json out = json::object();
    for (auto& [imei, device] : mDevices) {
        out[imei] = {
            {"key", KeyOf(device)}, {"queued", device.answers.size()}, {"received", device.received.size()}};
    }
    return out;
}

json PortalState::Snapshot() {
    std::lock_guard<std::mutex> guard(mMutex);
    json devices = json::object();
    for (auto& [imei, device] : mDevices) {
        devices[imei] = {{"key", KeyOf(device)},
                         {"answers", json(device.answers)},
                         {"provision", device.provision},
                         {"received", device.received}};
    }
    return {{"factory_key", mFactoryKey}, {"devices", devices}};
}

void PortalState::Reset() {
    std::lock_guard<std::mutex> guard(mMutex);
    mDevices.clear();
}

Device& PortalState::DeviceFor(const std::string& imei) {
    auto it = mDevices.find(imei);
    if (it != mDevices.end()) {
        return it->second;
    }
    Device& device = mDevices[imei];
    return device;
}

std::string PortalState::Decrypt(const std::string& key, const std::string& text) {
    char* plain = nullptr;
    if (AesDecrypt(key.c_str(), text.c_str(), &plain) != 0 || plain == nullptr) {
        return "";
    }
    std::string out = plain;
    std::free(plain);
    return out;
}

std::string PortalState::Encrypt(const std::string& key, const std::string& text) {
    char* cipher = nullptr;
    if (AesEncrypt(key.c_str(), text.c_str(), &cipher) != 0 || cipher == nullptr) {
        return "";
    }
    std::string out = cipher;
    std::free(cipher);
    return out;
}

Reply PortalState::Handle(const std::string& path, const std::string& body) {
    json request = json::parse(body, nullptr, false);
    // The key-and-URL exchange has a path of its own; everything else is a check-in or receipt.
    bool provisioning = path == kProvisionPath || path.rfind(std::string(kProvisionPath) + "/", 0) == 0;
    if (provisioning && request.is_object() && request.contains("EncryptedDeviceIMEI") &&
        request["EncryptedDeviceIMEI"].is_string()) {
        return HandleProvisioning(path, request);
    }
    if (!provisioning && request.is_object() && request.contains("Request") &&
        request["Request"].is_string()) {
        return HandleEnvelope(path, request, body);
    }
    std::lock_guard<std::mutex> guard(mMutex);
    DeviceFor("?").received.push_back(
        {{"time", NowText()}, {"path", path}, {"kind", "malformed"}, {"body", body.substr(0, 4096)}});
    Reply reply;
    reply.status = 400;
    reply.body = "{\"error\":\"not an envelope\"}";
    reply.summary = "malformed request on " + path + " -> 400";
    return reply;
}

// The envelope carries the IMEI in the clear and the request encrypted with the device's key.
// A device that missed a key change still uses the factory key, so that one is tried second.
Reply PortalState::HandleEnvelope(const std::string& path, const json& envelope, const std::string& body) {
    std::lock_guard<std::mutex> guard(mMutex);
    std::string imei = stringOr(envelope, "IMEI", "");
    Device& device = DeviceFor(imei);
    std::string cipher = envelope["Request"].get<std::string>();
    std::string keyName = device.key.empty() ? "factory" : "device";
    std::string plain = Decrypt(KeyOf(device), cipher);
    json inner = json::parse(plain, nullptr, false);
    if (inner.is_discarded() && !device.key.empty()) {
        plain = Decrypt(mFactoryKey, cipher);
        inner = json::parse(plain, nullptr, false);
        keyName = "factory";
    }
    Reply reply;
    json record = {{"time", NowText()}, {"path", path}, {"imei", imei}, {"key", keyName}, {"envelope", body}};
    if (inner.is_discarded()) {
        record["kind"] = "undecryptable";
        device.received.push_back(record);
        reply.status = 400;
        reply.body = "{\"error\":\"cannot decrypt\"}";
        reply.summary = "request from " + imei + " cannot be decrypted -> 400";
        return reply;
    }
    record["request"] = inner;
    if (inner.is_object() && inner.contains("ErrorCode")) {
        record["kind"] = "receipt";
        reply.body = "{}";
        record["reply"] = reply.body;
        device.received.push_back(record);
        // The message is quoted as JSON, so that its blanks and an empty message show.
        reply.summary = "receipt from " + imei + " (" + keyName + " key): ErrorCode " +
                        (inner["ErrorCode"].is_string() ? inner["ErrorCode"].get<std::string>()
                                                        : inner["ErrorCode"].dump()) +
                        " ErrorMessage " + json(stringOr(inner, "ErrorMessage", "")).dump() + " -> 200";
        return reply;
    }
    record["kind"] = "checkin";
    json answer = NextAnswer(device);
    record["answer"] = answer;

    reply.status = answer.value("Status", 200);
    if (answer.contains("Raw") && answer["Raw"].is_string()) {
        reply.body = answer["Raw"].get<std::string>();
        reply.contentType = "text/plain";
        record["reply"] = reply.body;
        device.received.push_back(record);
        reply.summary = "check-in from " + imei + " (" + keyName + " key) -> " +
                        std::to_string(reply.status) + " raw answer of " + std::to_string(reply.body.size()) +
                        " bytes";
        return reply;
    }
    int code = answer.value("ResultCode", 1);
    json out = {{"ResultCode", code}, {"Version", answer.value("Version", std::string("0"))}};
    if (answer.contains("CheckinIntervalInHours")) {
        out["Settings"] = {{"CheckinIntervalInHours", answer["CheckinIntervalInHours"]}};
    }
    if (code == 94 || code == 95) {
        std::string key = stringOr(answer, "DeviceEncryptionKey", "");
        if (key.empty()) {
            key = "portal-key-" + std::to_string(++mGeneratedKeys) + "-" + imei;
        }
        out["DeviceEncryptionKey"] = key;
        // The device stores the key before it decrypts what follows.
        device.key = key;
    }
    if (code == 96 || code == 97) {
        out["CheckInUrl"] = stringOr(answer, "CheckInUrl", "");
    }
    if (answer.contains("EncryptedConfiguration")) {
        out["EncryptedConfiguration"] = answer["EncryptedConfiguration"];
    } else if (answer.contains("Configuration")) {
        const json& doc = answer["Configuration"];
        std::string text = doc.is_string() ? doc.get<std::string>() : doc.dump();
        out["EncryptedConfiguration"] = Encrypt(KeyOf(device), text);
        record["configuration"] = text;  // what the device decrypts, for the console
    }
    reply.body = out.dump();
    record["reply"] = reply.body;
    device.received.push_back(record);
    reply.summary = "check-in from " + imei + " (" + keyName + " key, version " +
                    stringOr(inner, "Version", "?") + ") -> " + std::to_string(reply.status) +
                    " ResultCode " + std::to_string(code) +
                    (out.contains("EncryptedConfiguration") ? " with configuration" : "");
    return reply;
}

// The key-and-URL request: the IMEI encrypted with the factory key; the answer is a JSON string
// literal holding the encrypted {"DeviceEncryptionKey", "CheckInUrl"}, also under the factory key.
Reply PortalState::HandleProvisioning(const std::string& path, const json& request) {
    std::lock_guard<std::mutex> guard(mMutex);
    std::string imei = Decrypt(mFactoryKey, request["EncryptedDeviceIMEI"].get<std::string>());
    Reply reply;
    bool printable = !imei.empty();
    for (unsigned char c : imei) {
        printable = printable && c >= 0x20 && c < 0x7f;
    }
    if (!printable) {
        DeviceFor("?").received.push_back({{"time", NowText()}, {"path", path}, {"kind", "undecryptable"}});
        reply.status = 400;
        reply.body = "\"\"";
        reply.summary = "key-and-URL request that cannot be decrypted -> 400";
        return reply;
    }
    Device& device = DeviceFor(imei);
    json provision = device.provision;
    if (!provision.is_object()) {
        auto fallback = mDevices.find("*");
        provision = fallback != mDevices.end() && fallback->second.provision.is_object()
                        ? fallback->second.provision
                        : json::object();
    }
    if (provision.contains("Raw") && provision["Raw"].is_string()) {
        // A scripted bad answer, sent as it stands; the device keeps its pair.
        reply.status = provision.value("Status", 200);
        reply.body = provision["Raw"].get<std::string>();
        reply.contentType = "text/plain";
        device.received.push_back({{"time", NowText()},
                                   {"path", path},
                                   {"imei", imei},
                                   {"kind", "provision"},
                                   {"envelope", request.dump()},
                                   {"answer", provision},
                                   {"reply", reply.body}});
        reply.summary = "key-and-URL request from " + imei + " -> " + std::to_string(reply.status) +
                        " raw answer of " + std::to_string(reply.body.size()) + " bytes";
        return reply;
    }
    std::string key = stringOr(provision, "DeviceEncryptionKey", "");
    if (key.empty()) {
        key = "portal-key-" + std::to_string(++mGeneratedKeys) + "-" + imei;
    }
    json answer = {{"DeviceEncryptionKey", key}, {"CheckInUrl", stringOr(provision, "CheckInUrl", "")}};
    device.key = key;
    reply.body = "\"" + Encrypt(mFactoryKey, answer.dump()) + "\"";
    device.received.push_back({{"time", NowText()},
                               {"path", path},
                               {"imei", imei},
                               {"kind", "provision"},
                               {"envelope", request.dump()},
                               {"answer", answer},
                               {"reply", reply.body}});
    reply.summary = "key-and-URL request from " + imei + " -> 200 key " + key + " url " +
                    answer["CheckInUrl"].get<std::string>();
    return reply;
}

// The next scripted answer of this device, else of "*", else result code 1.
json PortalState::NextAnswer(Device& device) {
    for (Device* queue : {&device, mDevices.count("*") ? &mDevices["*"] : nullptr}) {
        if (queue != nullptr && !queue->answers.empty()) {
            json answer = queue->answers.front();
            queue->answers.pop_front();
            return answer.is_object() ? answer : json{{"Raw", answer.dump()}};
        }
    }
    return {{"ResultCode", 1}, {"Version", "0"}};
}

}  // namespace portal
