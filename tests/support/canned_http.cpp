#include "canned_http.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace tola_test {

CannedHttpServer::CannedHttpServer(std::vector<std::string> answers) : mAnswers(std::move(answers)) {
    mListen = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (mListen < 0) {
        throw std::runtime_error("socket failed");
    }
    int one = 1;
    setsockopt(mListen, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = 0;
    if (bind(mListen, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || listen(mListen, 16) != 0) {
        close(mListen);
        throw std::runtime_error("bind/listen failed");
    }
    socklen_t len = sizeof addr;
    getsockname(mListen, reinterpret_cast<sockaddr*>(&addr), &len);
    mPort = ntohs(addr.sin_port);
    mThread = std::thread([this] { serve(); });
}

CannedHttpServer::~CannedHttpServer() {
    mStop = true;
    mThread.join();
    close(mListen);
}

std::vector<std::string> CannedHttpServer::bodies() {
    std::lock_guard<std::mutex> guard(mMutex);
    return mBodies;
}

void CannedHttpServer::serve() {
    size_t next = 0;
    while (!mStop) {
        pollfd pfd{mListen, POLLIN, 0};
        if (poll(&pfd, 1, 20) <= 0) {
            continue;
        }
        int fd = accept4(mListen, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        std::string in;
        char buf[4096];
        size_t headerEnd = std::string::npos;
        size_t want = 0;
        while (true) {
            pollfd cfd{fd, POLLIN, 0};
            if (poll(&cfd, 1, 2000) <= 0) {
                break;
            }
            ssize_t n = read(fd, buf, sizeof buf);
            if (n <= 0) {
                break;
            }
            in.append(buf, static_cast<size_t>(n));
            if (headerEnd == std::string::npos) {
                headerEnd = in.find("\r\n\r\n");
                if (headerEnd != std::string::npos) {
                    size_t cl = in.find("Content-Length:");
                    want = cl != std::string::npos && cl < headerEnd ? std::strtoul(in.c_str() + cl + 15, nullptr, 10) : 0;
                }
            }
            if (headerEnd != std::string::npos && in.size() >= headerEnd + 4 + want) {
                break;
            }
        }
        std::string body = headerEnd == std::string::npos ? "" : in.substr(headerEnd + 4);
        {
            std::lock_guard<std::mutex> guard(mMutex);
            mBodies.push_back(body);
        }
        const std::string& answer = mAnswers.empty() ? std::string() : mAnswers[std::min(next, mAnswers.size() - 1)];
        ++next;
        std::string out = "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: " +
                          std::to_string(answer.size()) + "\r\n\r\n" + answer;
        ssize_t ignored = write(fd, out.data(), out.size());
        (void)ignored;
        close(fd);
    }
}

}  // namespace tola_test
