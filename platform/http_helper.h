// Platform HTTP client: one exchange with a web server over HTTP or HTTPS. The request text is
// sent as the body of a POST; HTTPS always verifies the server's certificate and host name.
#pragma once

#include <cstddef>
#include <string>

class HttpHelper {
  public:
    // The largest answer body accepted; a longer answer makes the exchange fail.
    static constexpr size_t kMaxResponseBytes = 1024 * 1024;

    HttpHelper();
    ~HttpHelper();
    HttpHelper(const HttpHelper&) = delete;
    HttpHelper& operator=(const HttpHelper&) = delete;

    // Whole-exchange time-out in seconds; 0 means none.
    void SetTimeout(long seconds) { mTimeoutSeconds = seconds; }
    long GetTimeout() const { return mTimeoutSeconds; }
    // Network interface that the connection leaves by; "" for the system's choice.
    void SetInterface(const std::string& interfaceName) { mInterface = interfaceName; }
    const std::string& GetInterface() const { return mInterface; }
    // Forced resolution "host:port:address": connections to host:port go to address, whatever
    // the system resolver says. "" for none.
    void SetResolveEntry(const std::string& entry) { mResolveEntry = entry; }
    const std::string& GetResolveEntry() const { return mResolveEntry; }

    // Sends body to url and returns the answer's body and HTTP status. 0 when the exchange
    // completed (whatever the status), non-zero when it failed (connection, TLS, time-out,
    // answer too large); httpStatus is 0 then.
    int ExecuteGetRequest(const std::string& url, const std::string& body, std::string& response,
                          int& httpStatus);

  private:
    long mTimeoutSeconds = 0;
    std::string mInterface;
    std::string mResolveEntry;
};
