// A minimal HTTP server on loopback for unit tests of the check-in client: answers each
// request with the next scripted answer (the last one repeats) and records the request bodies.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tola_test {

// Binds a TCP socket to a free loopback port and listens on it; returns the port.
int listenOnLoopback(int fd);

class CannedHttpServer {
  public:
    // Each answer is the body of a "200 OK" with Content-Type application/json.
    explicit CannedHttpServer(std::vector<std::string> answers);
    ~CannedHttpServer();
    CannedHttpServer(const CannedHttpServer&) = delete;
    CannedHttpServer& operator=(const CannedHttpServer&) = delete;

    int port() const { return mPort; }
    // Without a path, so that the check-in client reads host and port from it and needs no DNS.
    std::string url() const { return "http://127.0.0.1:" + std::to_string(mPort); }
    std::vector<std::string> bodies();

  private:
    void serve();

    std::vector<std::string> mAnswers;
    int mListen = -1;
    int mPort = 0;
    std::atomic<bool> mStop{false};
    std::mutex mMutex;
    std::vector<std::string> mBodies;
    std::thread mThread;
};

}  // namespace tola_test
