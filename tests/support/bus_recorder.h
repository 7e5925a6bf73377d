// A bus callback that records every notice, for the tests of the message bus on any backend.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "msgbus_handler.h"

namespace tola_test {

// Every notice received, flattened to "channel=int:<v>", "channel=str:<v>" or "channel=bin:<hex>".
class BusRecorder : public MsgbusCallbackInterface {
  public:
    void OnChannelNotify(const std::string& channel, const std::string& data) override {
        add(channel, "str:" + data);
    }
    void OnChannelNotify(const std::string& channel, const int& data) override {
        add(channel, "int:" + std::to_string(data));
    }
    void OnChannelNotify(const std::string& channel, void* data, int length) override {
        std::string hex = "bin:";
        for (int i = 0; i < length; ++i) {
            hex += "0123456789abcdef"[static_cast<const unsigned char*>(data)[i] >> 4];
            hex += "0123456789abcdef"[static_cast<const unsigned char*>(data)[i] & 15];
        }
        add(channel, hex);
    }

    // Waits until some notice arrived on channel; real-time bound only against a hang.
    bool waitFor(const std::string& channel) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCond.wait_for(lock, std::chrono::seconds(10), [&] {
            return std::any_of(mReceived.begin(), mReceived.end(),
                               [&](const std::string& r) { return r.rfind(channel + "=", 0) == 0; });
        });
    }
    std::vector<std::string> received() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mReceived;
    }

    std::function<void(const std::string& channel)> onReceive;

  private:
    void add(const std::string& channel, const std::string& value) {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mReceived.push_back(channel + "=" + value);
        }
        mCond.notify_all();
        if (onReceive) {
            onReceive(channel);
        }
    }

    std::mutex mMutex;
    std::condition_variable mCond;
    std::vector<std::string> mReceived;
};

}  // namespace tola_test
