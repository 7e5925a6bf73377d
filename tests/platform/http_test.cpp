// The HTTP client: the exchange, forced resolution, the interface, time-outs and TLS checks.
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "canned_http.h"
#include "conformance.h"
#include "http_helper.h"

using tola_test::CannedHttpServer;
using tola_test::listenOnLoopback;

namespace {

// An HTTPS server whose self-signed certificate names portal.tola.test only; counts the requests
// that got through the handshake.
class TlsServer {
  public:
    TlsServer() {
        std::string cmd =
            "openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=portal.tola.test "
            "-addext subjectAltName=DNS:portal.tola.test -keyout '" +
            mKey + "' -out '" + pem + "' 2>/dev/null";
        if (std::system(cmd.c_str()) != 0) {
            throw std::runtime_error("openssl req failed");
        }
        SSL_CTX_use_certificate_file(mCtx, pem.c_str(), SSL_FILETYPE_PEM);
        SSL_CTX_use_PrivateKey_file(mCtx, mKey.c_str(), SSL_FILETYPE_PEM);
        port = listenOnLoopback(mFd);
        // Until the destructor shuts the socket down.
        mThread = std::thread([this] {
            for (int fd; (fd = accept4(mFd, nullptr, nullptr, SOCK_CLOEXEC)) >= 0; close(fd)) {
                SSL* ssl = SSL_new(mCtx);
                char buffer[4096];
                // A client that refuses the certificate after the handshake sends nothing.
                if (SSL_set_fd(ssl, fd) == 1 && SSL_accept(ssl) == 1 &&
                    SSL_read(ssl, buffer, sizeof buffer) > 0) {
                    ++requests;
                    const char answer[] =
                        "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\nok";
                    SSL_write(ssl, answer, sizeof answer - 1);
                    SSL_shutdown(ssl);
                }
                SSL_free(ssl);
            }
        });
    }
    ~TlsServer() {
        shutdown(mFd, SHUT_RDWR);
        mThread.join();
        close(mFd);
        SSL_CTX_free(mCtx);
        std::remove(pem.c_str());
        std::remove(mKey.c_str());
    }

    const std::string pem = "/tmp/tola-http-" + std::to_string(getpid()) + ".pem";
    int port = 0;
    std::atomic<int> requests{0};

  private:
    const std::string mKey = "/tmp/tola-http-" + std::to_string(getpid()) + ".key";
    SSL_CTX* mCtx = SSL_CTX_new(TLS_server_method());
    int mFd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::thread mThread;
};

struct Exchange {
    int rc;
    int status;
    std::string answer;
};

Exchange post(const std::string& url, const std::string& resolve = "", const std::string& interfaceName = "",
              long timeout = 5) {
    HttpHelper client;
    client.SetTimeout(timeout);
    client.SetInterface(interfaceName);
    client.SetResolveEntry(resolve);
    Exchange e{0, -1, "stale"};
    e.rc = client.ExecuteGetRequest(url, "{\"envelope\":1}", e.answer, e.status);
    return e;
}

using HttpTest = DeviceTest;

}  // namespace

TEST_F(HttpTest, ExchangeSendsTheBodyAndReturnsTheAnswer) {
    CannedHttpServer server({R"({"ResultCode":1})"});
    std::string port = std::to_string(server.port());
    // Directly, and by a name only the forced resolution knows, over the given interface.
    for (const std::string& url : {server.url(), "http://nowhere.tola.test:" + port + "/"}) {
        Exchange e = post(url, "nowhere.tola.test:" + port + ":127.0.0.1", "lo");
        ASSERT_EQ(e.rc, 0) << url;
        EXPECT_EQ(e.status, 200);
        EXPECT_EQ(e.answer, R"({"ResultCode":1})");
    }
    EXPECT_EQ(server.bodies(), std::vector<std::string>(2, "{\"envelope\":1}"));
}

TEST_F(HttpTest, FailedExchangesGiveNoStatusAndNoAnswer) {
    CannedHttpServer huge({std::string(HttpHelper::kMaxResponseBytes + 1, 'x')});
    CannedHttpServer plain({"plain"});
    int silent = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);  // accepts nothing, answers nothing
    struct Case {
        std::string url, interfaceName;
    } cases[] = {
        {huge.url(), ""},                                                            // answer too large
        {"http://127.0.0.1:9/", ""},                                                 // refused
        {"https://127.0.0.1:" + std::to_string(plain.port()) + "/", ""},             // not TLS
        {plain.url(), "no-such-if0"},                                                // interface missing
        {"http://127.0.0.1:" + std::to_string(listenOnLoopback(silent)) + "/", ""},  // time-out
        {"ftp://127.0.0.1/", ""},                                                    // other protocols
        {"", ""},
    };
    for (const Case& c : cases) {
        Exchange e = post(c.url, "", c.interfaceName, 1);
        EXPECT_NE(e.rc, 0) << c.url;
        EXPECT_EQ(e.status, 0) << c.url;
        EXPECT_EQ(e.answer, "") << c.url;
    }
    close(silent);
}

TEST_F(HttpTest, HttpsVerifiesTheCertificateAndTheHostName) {
    TlsServer server;
    std::string port = std::to_string(server.port);
    std::string byName = "https://portal.tola.test:" + port + "/";
    std::string resolve = "portal.tola.test:" + port + ":127.0.0.1";
    // Not trusted yet: the handshake fails, nothing is sent.
    EXPECT_NE(post(byName, resolve).rc, 0);
    EXPECT_EQ(server.requests, 0);
    backend::trustCertificates(server.pem);
    // Trusted, but reached by a name the certificate does not carry.
    EXPECT_NE(post("https://127.0.0.1:" + port + "/").rc, 0);
    EXPECT_EQ(server.requests, 0);
    Exchange e = post(byName, resolve);
    ASSERT_EQ(e.rc, 0);
    EXPECT_EQ(e.status, 200);
    EXPECT_EQ(e.answer, "ok");
}
