// Platform message bus: publish/subscribe on named channels with int, text or binary values.
#pragma once

#include <string>
#include <vector>

class MsgbusCallbackInterface {
  public:
    virtual void OnChannelNotify(const std::string& channel, const std::string& data) = 0;
    virtual void OnChannelNotify(const std::string& channel, const int& data) = 0;
    virtual void OnChannelNotify(const std::string& channel, void* data, int length) = 0;
    virtual ~MsgbusCallbackInterface() = default;
};

// Every handler of a process shares one bus connection and one delivery thread, which calls
// the OnChannelNotify overload that matches the value's kind. A channel registered on a
// handler without a callback is delivered to the callbacks of the process's other handlers.
class MsgbusHandler {
  public:
    explicit MsgbusHandler(MsgbusCallbackInterface* callback = nullptr);
    ~MsgbusHandler();
    MsgbusHandler(const MsgbusHandler&) = delete;
    MsgbusHandler& operator=(const MsgbusHandler&) = delete;

    // Connects to the bus. 0 on success.
    int Initialize();
    int Uninitialize();

    // Subscribes (true) or unsubscribes (false) one channel. 0 on success.
    int RegisterForChannelSubscription(const std::string& channel, bool subscribe);

    int PublishData(const std::string& channel, int value);
    int PublishData(const std::string& channel, const std::string& value);
    int PublishData(const std::string& channel, const void* data, int length);

  private:
    // The handler's subscriptions live in the process's shared bus connection (msgbus.cpp).
    MsgbusCallbackInterface* mCallback;
    bool mInitialized = false;
};
