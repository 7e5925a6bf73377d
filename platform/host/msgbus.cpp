// Host message bus on D-Bus (sd-bus). Every notification is one signal
//   path /com/ardo/Msgbus, interface com.ardo.Msgbus1, member Notify, signature sv
// holding the channel name and a variant of i (integer), s (text) or ay (binary data).
//
// All handlers of a process share one connection and one delivery thread, created by the first
// Initialize and closed by the last Uninitialize. sd-bus is not thread-safe, so every use of the
// connection holds gBusMutex; the delivery thread polls the connection's fd and an eventfd that
// other threads write after they used the connection (a synchronous call may have read incoming
// signals into sd-bus's queue, where the fd no longer shows them). Incoming signals are copied
// out under the lock and delivered after it is released, so a callback may publish, subscribe or
// uninitialise handlers.
//
// Text messages on "sms.msg.tola" are commands to the agent, so they are taken only from the
// users allowed to send them: root, the process's own user and those listed in
// ARDO_SMS_SENDERS (user names or numbers, separated by commas or blanks). The sender's user is
// asked of the bus daemon for each sending connection; a signal whose sender left the bus before
// it could be asked is dropped too (a lingering check cannot be told from an evasion). So that a
// one-shot sender (tola-devicectl) is not dropped that way, a process that reads the channel
// queues for the bus name com.ardo.Msgbus1.Sms, and a publisher on the channel pings every
// queued owner before it returns: each has then looked up the publisher while it was connected.
//
// Subscriptions are D-Bus matches on arg0; they only make the daemon route a channel to this
// process. One filter sees each incoming signal exactly once and picks the recipients from the
// handler registry: a handler with a callback receives its own channels; a channel subscribed on
// a handler without a callback goes to every handler of the process that has one. Each callback
// object receives a signal at most once, however many subscriptions matched.
#include <poll.h>
#include <pwd.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bus_open.h"
#include "device_state.h"
#include "msgbus_handler.h"
#include "vorn_dbg.h"

namespace {

constexpr const char* kPath = "/com/ardo/Msgbus";
constexpr const char* kInterface = "com.ardo.Msgbus1";
constexpr const char* kMember = "Notify";
// The channel whose texts only allowed users may send, and the name its readers queue for.
constexpr const char* kGuardedChannel = "sms.msg.tola";
constexpr const char* kGuardName = "com.ardo.Msgbus1.Sms";
// How long a publisher waits for one reader of the guarded channel to answer its ping.
constexpr uint64_t kGuardPingUsec = 5 * 1000 * 1000;
// Sender users remembered per connection name (names are never reused on a bus).
constexpr size_t kSenderCacheMax = 256;

struct Notice {
    enum class Kind { Int, Text, Binary };
    std::string channel;
    Kind kind = Kind::Int;
    int intValue = 0;
    std::string text;
    std::vector<uint8_t> bytes;
};

struct Subscription {
    std::string channel;
    sd_bus_slot* slot;
};

struct HandlerEntry {
    MsgbusCallbackInterface* callback = nullptr;
    std::vector<Subscription> subscriptions;
};

// The process's connection, delivery thread and handler registry.
// Lock order: gLifeMutex, then gStateMutex, then gBusMutex; the delivery thread never takes
// gLifeMutex and never holds two of them at once.
std::mutex gLifeMutex;  // serialises opening and closing the connection
std::condition_variable gLifeCv;
int gRefs = 0;
bool gSelfTeardown = false;  // the delivery thread is closing the connection on its way out

std::mutex gStateMutex;  // the registry and the callback in progress
std::condition_variable gStateCv;
std::map<MsgbusHandler*, HandlerEntry> gHandlers;
MsgbusCallbackInterface* gInCallback = nullptr;

std::mutex gBusMutex;  // the sd-bus connection and everything below
sd_bus* gBus = nullptr;
sd_bus_slot* gFilterSlot = nullptr;
int gWakeFd = -1;
bool gBroken = false;           // the connection failed; publishing fails from now on
std::vector<Notice> gIncoming;  // filled by the filter during sd_bus_process

// Unique name -> user (under gBusMutex). Never destroyed: a detached publisher thread (the data-usage
// notice) may still close the bus while the process runs its exit-time destructors.
std::map<std::string, uint32_t>& gSenderUids = *new std::map<std::string, uint32_t>;
bool gGuardNameRequested = false;  // this connection queues for kGuardName

std::thread gDelivery;
std::thread::id gDeliveryId;
std::atomic<bool> gStop{false};

bool onDeliveryThread() {
    return std::this_thread::get_id() == gDeliveryId;
}

// Wakes the delivery thread. Caller holds gBusMutex.
void wakeLocked() {
    if (gWakeFd >= 0) {
        uint64_t one = 1;
        ssize_t ignored = write(gWakeFd, &one, sizeof one);
        (void)ignored;
    }
}

// The users whose texts on the guarded channel are delivered: root, this process's user and
// those listed in ARDO_SMS_SENDERS. Read once.
const std::vector<uint32_t>& allowedSenders() {
    static const std::vector<uint32_t> allowed = [] {
        std::vector<uint32_t> uids = {0, static_cast<uint32_t>(geteuid())};
        const char* list = std::getenv("ARDO_SMS_SENDERS");
        std::string text = list != nullptr ? list : "";
        for (char& c : text) {
            c = c == ',' ? ' ' : c;
        }
        size_t at = 0;
        while ((at = text.find_first_not_of(' ', at)) != std::string::npos) {
            size_t end = text.find(' ', at);
            std::string item = text.substr(at, end == std::string::npos ? std::string::npos : end - at);
            at = end;
            char* rest = nullptr;
            unsigned long number = std::strtoul(item.c_str(), &rest, 10);
            if (*rest == '\0' && number <= UINT32_MAX) {
                uids.push_back(static_cast<uint32_t>(number));
                continue;
            }
            struct passwd entry {};
            struct passwd* found = nullptr;
            char buffer[4096];
            if (getpwnam_r(item.c_str(), &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr) {
                uids.push_back(static_cast<uint32_t>(found->pw_uid));
            } else {
                vorn_dbg_log(3, "[%s]:[%s] - ARDO_SMS_SENDERS: unknown user %s\n", "TOLA",
                             vorn_dbg_get_level_name(3), item.c_str());
            }
        }
        return uids;
    }();
    return allowed;
}

// Whether the connection that sent m belongs to an allowed user. Asks the bus daemon (a
// synchronous call; caller holds gBusMutex, inside sd_bus_process).
bool senderAllowed(sd_bus_message* m) {
    const char* sender = sd_bus_message_get_sender(m);
    if (sender == nullptr) {
        return false;  // a peer-to-peer connection has no sender; the agent never uses one
    }
    auto cached = gSenderUids.find(sender);
    uint32_t uid = 0;
    bool known = cached != gSenderUids.end();
    if (known) {
        uid = cached->second;
    } else {
        sd_bus_error error = SD_BUS_ERROR_NULL;
        sd_bus_message* reply = nullptr;
        int r =
            sd_bus_call_method(gBus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                               "GetConnectionUnixUser", &error, &reply, "s", sender);
        known = r >= 0 && sd_bus_message_read(reply, "u", &uid) >= 0;
        sd_bus_message_unref(reply);
        sd_bus_error_free(&error);
        if (known) {
            if (gSenderUids.size() >= kSenderCacheMax) {
                gSenderUids.clear();
            }
            gSenderUids[sender] = uid;
        }
    }
    const std::vector<uint32_t>& allowed = allowedSenders();
    if (known && std::find(allowed.begin(), allowed.end(), uid) != allowed.end()) {
        return true;
    }
    if (known) {
        vorn_dbg_log(5, "[%s]:[%s] - Dropped a message on %s from %s: user %u may not send it\n", "TOLA",
                     vorn_dbg_get_level_name(5), kGuardedChannel, sender, uid);
    } else {
        vorn_dbg_log(5,
                     "[%s]:[%s] - Dropped a message on %s from %s: its user is unknown (it left the bus)\n",
                     "TOLA", vorn_dbg_get_level_name(5), kGuardedChannel, sender);
    }
    return false;
}

// Copies one Notify signal into gIncoming (runs under gBusMutex, inside sd_bus_process).
int onMessage(sd_bus_message* m, void*, sd_bus_error*) {
    if (sd_bus_message_is_signal(m, kInterface, kMember) <= 0) {
        return 0;
    }
    const char* path = sd_bus_message_get_path(m);
    if (path == nullptr || std::strcmp(path, kPath) != 0) {
        return 0;
    }
    const char* channel = nullptr;
    if (sd_bus_message_read_basic(m, 's', &channel) < 0 || channel == nullptr) {
        return 0;
    }
    char type = 0;
    const char* contents = nullptr;
    if (sd_bus_message_peek_type(m, &type, &contents) <= 0 || type != SD_BUS_TYPE_VARIANT ||
        contents == nullptr) {
        return 0;
    }
    Notice notice;
    notice.channel = channel;
    if (sd_bus_message_enter_container(m, SD_BUS_TYPE_VARIANT, contents) <= 0) {
        return 0;
    }
    if (std::strcmp(contents, "i") == 0) {
        int32_t value = 0;
        if (sd_bus_message_read_basic(m, 'i', &value) <= 0) {
            return 0;
        }
        notice.kind = Notice::Kind::Int;
        notice.intValue = value;
    } else if (std::strcmp(contents, "s") == 0) {
        const char* text = nullptr;
        if (sd_bus_message_read_basic(m, 's', &text) <= 0 || text == nullptr) {
            return 0;
        }
        if (notice.channel == kGuardedChannel && !senderAllowed(m)) {
            return 0;
        }
        notice.kind = Notice::Kind::Text;
        notice.text = text;
    } else if (std::strcmp(contents, "ay") == 0) {
        const void* data = nullptr;
        size_t size = 0;
        if (sd_bus_message_read_array(m, 'y', &data, &size) < 0) {
            return 0;
        }
        notice.kind = Notice::Kind::Binary;
        if (size > 0 && data != nullptr) {
            const uint8_t* bytes = static_cast<const uint8_t*>(data);
            notice.bytes.assign(bytes, bytes + size);
        }
    } else {
        return 0;  // a variant of another kind is not ours
    }
    gIncoming.push_back(std::move(notice));
    return 0;
}

// Matches only steer the daemon's routing; delivery is decided in onMessage's consumer.
int onMatch(sd_bus_message*, void*, sd_bus_error*) {
    return 0;
}

// Caller holds gStateMutex.
bool callbackRegisteredLocked(MsgbusCallbackInterface* cb) {
    for (const auto& h : gHandlers) {
        if (h.second.callback == cb) {
            return true;
        }
    }
    return false;
}

// The callbacks that receive a notice on channel, each once.
std::vector<MsgbusCallbackInterface*> recipientsFor(const std::string& channel) {
    std::lock_guard<std::mutex> lock(gStateMutex);
    std::vector<MsgbusCallbackInterface*> out;
    bool toEveryCallback = false;
    for (const auto& h : gHandlers) {
        const HandlerEntry& e = h.second;
        bool subscribed = std::any_of(e.subscriptions.begin(), e.subscriptions.end(),
                                      [&](const Subscription& s) { return s.channel == channel; });
        if (!subscribed) {
            continue;
        }
        if (e.callback != nullptr) {
            out.push_back(e.callback);
        } else {
            toEveryCallback = true;
        }
    }
    if (toEveryCallback) {
        for (const auto& h : gHandlers) {
            if (h.second.callback != nullptr) {
                out.push_back(h.second.callback);
            }
        }
    }
    std::vector<MsgbusCallbackInterface*> unique;
    for (MsgbusCallbackInterface* cb : out) {
        if (std::find(unique.begin(), unique.end(), cb) == unique.end()) {
            unique.push_back(cb);
        }
    }
    return unique;
}

void dispatch(Notice& notice) {
    for (MsgbusCallbackInterface* cb : recipientsFor(notice.channel)) {
        {
            // The handler may have been uninitialised since the recipients were picked.
            std::lock_guard<std::mutex> lock(gStateMutex);
            if (!callbackRegisteredLocked(cb)) {
                continue;
            }
            gInCallback = cb;
        }
        switch (notice.kind) {
            case Notice::Kind::Int:
                cb->OnChannelNotify(notice.channel, notice.intValue);
                break;
            case Notice::Kind::Text:
                cb->OnChannelNotify(notice.channel, notice.text);
                break;
            case Notice::Kind::Binary:
                cb->OnChannelNotify(notice.channel, notice.bytes.empty() ? nullptr : notice.bytes.data(),
                                    static_cast<int>(notice.bytes.size()));
                break;
        }
        {
            std::lock_guard<std::mutex> lock(gStateMutex);
            gInCallback = nullptr;
        }
        gStateCv.notify_all();
    }
}

// Caller holds gBusMutex.
void closeBusLocked() {
    if (gFilterSlot != nullptr) {
        sd_bus_slot_unref(gFilterSlot);
        gFilterSlot = nullptr;
    }
    if (gBus != nullptr) {
        sd_bus_flush_close_unref(gBus);
        gBus = nullptr;
    }
    if (gWakeFd >= 0) {
        close(gWakeFd);
        gWakeFd = -1;
    }
    gIncoming.clear();
    gSenderUids.clear();
    gGuardNameRequested = false;
    gBroken = false;
}

// After publishing on the guarded channel: pings every process queued for kGuardName, so that
// each has read the signal, and looked up this connection's user, before this one may close.
// Caller holds gBusMutex. A reader that does not answer in time is given up on.
void waitForGuardedReadersLocked() {
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    std::vector<std::string> owners;
    if (sd_bus_call_method(gBus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                           "ListQueuedOwners", &error, &reply, "s", kGuardName) >= 0 &&
        sd_bus_message_enter_container(reply, 'a', "s") > 0) {
        const char* owner = nullptr;
        while (sd_bus_message_read_basic(reply, 's', &owner) > 0) {
            owners.push_back(owner);
        }
    }
    sd_bus_message_unref(reply);
    sd_bus_error_free(&error);
    const char* self = nullptr;
    sd_bus_get_unique_name(gBus, &self);
    for (const std::string& owner : owners) {
        if (self != nullptr && owner == self) {
            continue;  // this process reads its own signal later, on its delivery thread
        }
        sd_bus_message* ping = nullptr;
        if (sd_bus_message_new_method_call(gBus, &ping, owner.c_str(), "/", "org.freedesktop.DBus.Peer",
                                           "Ping") >= 0) {
            sd_bus_message* pong = nullptr;
            sd_bus_call(gBus, ping, kGuardPingUsec, nullptr, &pong);
            sd_bus_message_unref(pong);
        }
        sd_bus_message_unref(ping);
    }
}

int pollTimeoutMs(uint64_t usec) {
    if (usec == UINT64_MAX) {
        return -1;
    }
    struct timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    uint64_t nowUs =
        static_cast<uint64_t>(now.tv_sec) * 1000000ULL + static_cast<uint64_t>(now.tv_nsec) / 1000;
    if (usec <= nowUs) {
        return 0;
    }
    uint64_t ms = (usec - nowUs + 999) / 1000;
    return ms > 60000 ? 60000 : static_cast<int>(ms);
}

void deliveryLoop() {
    while (!gStop.load()) {
        struct pollfd fds[2];
        nfds_t n = 0;
        int timeoutMs = -1;
        {
            std::lock_guard<std::mutex> lock(gBusMutex);
            if (gBus != nullptr && !gBroken) {
                int fd = sd_bus_get_fd(gBus);
                int events = sd_bus_get_events(gBus);
                uint64_t usec = UINT64_MAX;
                if (fd >= 0 && events >= 0) {
                    fds[n++] = {fd, static_cast<short>(events), 0};
                }
                if (sd_bus_get_timeout(gBus, &usec) >= 0) {
                    timeoutMs = pollTimeoutMs(usec);
                }
            }
            fds[n++] = {gWakeFd, POLLIN, 0};
        }
        poll(fds, n, timeoutMs);
        uint64_t drained = 0;
        ssize_t ignored = read(fds[n - 1].fd, &drained, sizeof drained);
        (void)ignored;
        if (gStop.load()) {
            break;
        }
        std::vector<Notice> batch;
        {
            std::lock_guard<std::mutex> lock(gBusMutex);
            while (gBus != nullptr && !gBroken) {
                int r = sd_bus_process(gBus, nullptr);
                if (r < 0) {
                    gBroken = true;  // the daemon went away; wait for the stop request
                } else if (r == 0) {
                    break;
                }
            }
            batch.swap(gIncoming);
        }
        for (Notice& notice : batch) {
            dispatch(notice);
        }
    }
    // Only this thread sets gSelfTeardown (from a callback), so it may read it unlocked; in the
    // ordinary case the closing thread holds gLifeMutex while joining this one.
    if (gSelfTeardown) {
        {
            std::lock_guard<std::mutex> lock(gBusMutex);
            closeBusLocked();
        }
        std::lock_guard<std::mutex> life(gLifeMutex);
        gDeliveryId = std::thread::id();
        gSelfTeardown = false;
        gLifeCv.notify_all();
    }
}

// Opens the connection and starts the delivery thread. Caller holds gLifeMutex.
int openBusLocked() {
    std::lock_guard<std::mutex> lock(gBusMutex);
    sd_bus* bus = nullptr;
    int r = ardo::openBusFromEnvironment(&bus, "ARDO_BUS_ADDRESS", sd_bus_open_user);
    const char* unique = nullptr;
    if (r >= 0) {
        // Waits for the daemon's Hello reply: the address is reachable and speaks D-Bus.
        r = sd_bus_get_unique_name(bus, &unique);
    }
    if (r < 0) {
        sd_bus_close_unref(bus);
        return 1;
    }
    gBus = bus;
    gWakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (gWakeFd < 0 || sd_bus_add_filter(gBus, &gFilterSlot, onMessage, nullptr) < 0) {
        closeBusLocked();
        return 1;
    }
    gBroken = false;
    gStop.store(false);
    gDelivery = std::thread(deliveryLoop);
    gDeliveryId = gDelivery.get_id();
    return 0;
}

// Stops the delivery thread and closes the connection. Caller holds gLifeMutex.
void closeBusLockedLife() {
    gStop.store(true);
    {
        std::lock_guard<std::mutex> lock(gBusMutex);
        wakeLocked();
    }
    if (onDeliveryThread()) {
        // Called from a callback: the thread finishes the teardown when the callback returns.
        gSelfTeardown = true;
        gDelivery.detach();
        return;
    }
    if (gDelivery.joinable()) {
        gDelivery.join();
    }
    gDeliveryId = std::thread::id();
    std::lock_guard<std::mutex> lock(gBusMutex);
    closeBusLocked();
}

// A D-Bus match rule for one channel. Channels holding a quote or a backslash are refused
// rather than escaped.
bool matchRule(const std::string& channel, std::string& rule) {
    if (channel.empty() || channel.find_first_of("'\\") != std::string::npos ||
        channel.find('\0') != std::string::npos) {
        return false;
    }
    rule = std::string("type='signal',path='") + kPath + "',interface='" + kInterface + "',member='" +
           kMember + "',arg0='" + channel + "'";
    return true;
}

// Builds and sends one Notify signal; append writes the variant. 0 on success.
template <typename Append>
int publish(const std::string& channel, const char* variantType, Append append) {
    int faulted = 0;
    if (ardo::deviceTakeFault("MsgbusHandler::PublishData", &faulted)) {
        return faulted;
    }
    if (channel.find('\0') != std::string::npos) {
        return 1;
    }
    std::lock_guard<std::mutex> lock(gBusMutex);
    if (gBus == nullptr || gBroken) {
        return 1;
    }
    sd_bus_message* m = nullptr;
    int r = sd_bus_message_new_signal(gBus, &m, kPath, kInterface, kMember);
    if (r >= 0) {
        r = sd_bus_message_append_basic(m, 's', channel.c_str());
    }
    if (r >= 0) {
        r = sd_bus_message_open_container(m, SD_BUS_TYPE_VARIANT, variantType);
    }
    if (r >= 0) {
        r = append(m);
    }
    if (r >= 0) {
        r = sd_bus_message_close_container(m);
    }
    if (r >= 0) {
        r = sd_bus_send(gBus, m, nullptr);
    }
    if (r >= 0) {
        // Out before returning: the caller may end the process next (a reboot).
        r = sd_bus_flush(gBus);
    }
    if (r >= 0 && channel == kGuardedChannel) {
        waitForGuardedReadersLocked();
    }
    sd_bus_message_unref(m);
    wakeLocked();
    return r >= 0 ? 0 : 1;
}

}  // namespace

MsgbusHandler::MsgbusHandler(MsgbusCallbackInterface* callback) : mCallback(callback) {}

MsgbusHandler::~MsgbusHandler() {
    Uninitialize();
}

int MsgbusHandler::Initialize() {
    int rc = 0;
    if (ardo::deviceTakeFault("MsgbusHandler::Initialize", &rc)) {
        return rc;
    }
    if (mInitialized) {
        return 0;
    }
    std::unique_lock<std::mutex> life(gLifeMutex);
    gLifeCv.wait(life, [] { return !gSelfTeardown; });
    if (gRefs == 0 && openBusLocked() != 0) {
        return 1;
    }
    ++gRefs;
    {
        std::lock_guard<std::mutex> lock(gStateMutex);
        gHandlers[this] = HandlerEntry{mCallback, {}};
    }
    mInitialized = true;
    return 0;
}

int MsgbusHandler::Uninitialize() {
    if (!mInitialized) {
        return 0;
    }
    mInitialized = false;
    std::vector<sd_bus_slot*> slots;
    {
        std::unique_lock<std::mutex> lock(gStateMutex);
        auto it = gHandlers.find(this);
        if (it != gHandlers.end()) {
            for (const Subscription& s : it->second.subscriptions) {
                slots.push_back(s.slot);
            }
            gHandlers.erase(it);
        }
        // The callback object may go away once this returns: wait out a delivery in progress
        // (unless this is that delivery, or another handler still serves the same object).
        if (mCallback != nullptr && !onDeliveryThread()) {
            gStateCv.wait(lock,
                          [this] { return gInCallback != mCallback || callbackRegisteredLocked(mCallback); });
        }
    }
    {
        std::lock_guard<std::mutex> lock(gBusMutex);
        for (sd_bus_slot* slot : slots) {
            sd_bus_slot_unref(slot);
        }
        wakeLocked();
    }
    std::lock_guard<std::mutex> life(gLifeMutex);
    if (--gRefs == 0) {
        closeBusLockedLife();
    }
    return 0;
}

int MsgbusHandler::RegisterForChannelSubscription(const std::string& channel, bool subscribe) {
    int rc = 0;
    if (ardo::deviceTakeFault("MsgbusHandler::RegisterForChannelSubscription", &rc)) {
        return rc;
    }
    std::string rule;
    if (!matchRule(channel, rule)) {
        return 1;
    }
    std::lock_guard<std::mutex> state(gStateMutex);
    auto it = gHandlers.find(this);
    if (it == gHandlers.end()) {
        return 1;
    }
    std::vector<Subscription>& subs = it->second.subscriptions;
    auto sub =
        std::find_if(subs.begin(), subs.end(), [&](const Subscription& s) { return s.channel == channel; });
    std::lock_guard<std::mutex> lock(gBusMutex);
    if (subscribe) {
        if (sub != subs.end()) {
            return 0;
        }
        if (gBus == nullptr || gBroken) {
            return 1;
        }
        sd_bus_slot* slot = nullptr;
        // Synchronous: once this returns, the daemon routes the channel to us.
        int r = sd_bus_add_match(gBus, &slot, rule.c_str(), onMatch, nullptr);
        if (r >= 0 && channel == kGuardedChannel && !gGuardNameRequested) {
            // Queued, never replacing: every reader of the channel is listed for the publishers.
            // A bus whose policy does not let this user own the name refuses it; publishers then
            // cannot wait for this reader, which is all that is lost.
            gGuardNameRequested = sd_bus_request_name(gBus, kGuardName, SD_BUS_NAME_QUEUE) >= 0;
        }
        wakeLocked();
        if (r < 0) {
            return 1;
        }
        subs.push_back(Subscription{channel, slot});
        return 0;
    }
    if (sub != subs.end()) {
        sd_bus_slot_unref(sub->slot);
        subs.erase(sub);
        wakeLocked();
    }
    return 0;
}

// Publications are journalled like the calls that change the device: other daemons act on them,
// and their place among the setters is part of what an apply does.
namespace {
int journalPublication(const std::string& channel, const ardo::json& value, int rc) {
    ardo::deviceJournal("MsgbusHandler::PublishData", {{"channel", channel}, {"value", value}}, rc);
    return rc;
}
}  // namespace

int MsgbusHandler::PublishData(const std::string& channel, int value) {
    if (!mInitialized) {
        return journalPublication(channel, value, 1);
    }
    int32_t v = value;
    return journalPublication(channel, value, publish(channel, "i", [v](sd_bus_message* m) {
                                  return sd_bus_message_append_basic(m, 'i', &v);
                              }));
}

int MsgbusHandler::PublishData(const std::string& channel, const std::string& value) {
    if (!mInitialized || value.find('\0') != std::string::npos) {
        return 1;
    }
    return journalPublication(channel, value, publish(channel, "s", [&value](sd_bus_message* m) {
                                  return sd_bus_message_append_basic(m, 's', value.c_str());
                              }));
}

int MsgbusHandler::PublishData(const std::string& channel, const void* data, int length) {
    if (!mInitialized || length < 0 || (data == nullptr && length > 0)) {
        return 1;
    }
    static const uint8_t kNothing = 0;
    const void* bytes = length > 0 ? data : &kNothing;
    // Binary values are journalled by their length.
    return journalPublication(channel, length, publish(channel, "ay", [bytes, length](sd_bus_message* m) {
                                  return sd_bus_message_append_array(m, 'y', bytes,
                                                                     static_cast<size_t>(length));
                              }));
}
