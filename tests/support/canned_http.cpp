#include "canned_http.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace tola_test {

int listenOnLoopback(int fd) {
    sockaddr_in addr{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};  // port 0: the kernel picks one
    socklen_t len = sizeof addr;
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&addr), len) != 0 || listen(fd, 16) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
        throw std::runtime_error("socket/bind/listen failed");
    }
    return ntohs(addr.sin_port);
}

CannedHttpServer::CannedHttpServer(std::vector<std::string> answers)
    : mAnswers(std::move(answers)),
      mListen(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
      mPort(listenOnLoopback(mListen)),
      mThread([this] { serve(); }) {}

CannedHttpServer::~CannedHttpServer() {
    mStop = true;
    mThread.join();
    close(mListen);
}

std::vector<std::string> CannedHttpServer::bodies() {
    std::lock_guard<std::mutex> guard(mMutex);
    return mBodies;
}

// Reads one request (headers, then Content-Length bytes of body) and returns its body.
static std::string readBody(int fd) {
    std::string in;
    char buf[4096];
    pollfd cfd{fd, POLLIN, 0};
    for (ssize_t n; poll(&cfd, 1, 2000) > 0 && (n = read(fd, buf, sizeof buf)) > 0;) {
        in.append(buf, static_cast<size_t>(n));
        size_t headerEnd = in.find("\r\n\r\n"), cl = in.find("Content-Length:");
        size_t want = cl < headerEnd ? std::strtoul(in.c_str() + cl + 15, nullptr, 10) : 0;
        if (headerEnd != std::string::npos && in.size() >= headerEnd + 4 + want) {
            break;
        }
    }
    size_t headerEnd = in.find("\r\n\r\n");
    return headerEnd == std::string::npos ? "" : in.substr(headerEnd + 4);
}

void CannedHttpServer::serve() {
    for (size_t next = 0; !mStop;) {
        pollfd pfd{mListen, POLLIN, 0};
        int fd = poll(&pfd, 1, 20) > 0 ? accept4(mListen, nullptr, nullptr, SOCK_CLOEXEC) : -1;
        if (fd < 0) {
            continue;
        }
        std::string body = readBody(fd);
        std::string answer = mAnswers.empty() ? "" : mAnswers[std::min(next++, mAnswers.size() - 1)];
        {
            std::lock_guard<std::mutex> guard(mMutex);
            mBodies.push_back(body);
        }
        answer =
            "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: " +
            std::to_string(answer.size()) + "\r\n\r\n" + answer;
        (void)!write(fd, answer.data(), answer.size());
        close(fd);
    }
}

}  // namespace tola_test
