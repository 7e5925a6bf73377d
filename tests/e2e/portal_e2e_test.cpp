// tola-portal's admin API and console form as operators use them: curl's ways of sending (no
// body, large form-encoded bodies behind "Expect: 100-continue") and the console's form. Its
// command line is in the CLI cases.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cctype>

#include "e2e_fixture.h"

namespace tola_test {
namespace {

const std::string kForm = "application/x-www-form-urlencoded";  // curl -d

// A value for a form-encoded body.
std::string FormValue(const std::string& text) {
    std::string out;
    for (unsigned char c : text) {
        char hex[4];
        std::snprintf(hex, sizeof hex, "%%%02X", c);
        out += std::isalnum(c) ? std::string(1, static_cast<char>(c)) : std::string(hex);
    }
    return out;
}

int StatusOf(const std::string& answer) {
    return answer.size() > 12 ? std::atoi(answer.c_str() + 9) : 0;
}

class PortalE2E : public E2ETest {
  protected:
    // One HTTP/1.1 exchange written by hand, so that the test controls every header: the request
    // head (without the blank line) and body; with expectContinue the body follows the interim
    // "100 Continue" as curl sends it. The whole answer (status line, headers, body).
    std::string Exchange(const std::string& head, const std::string& body, bool expectContinue = false) {
        int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in addr{AF_INET,
                         htons(static_cast<uint16_t>(std::stoi(portalUrl.substr(portalUrl.rfind(':') + 1)))),
                         {htonl(INADDR_LOOPBACK)},
                         {}};
        timeval timeout{5, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        std::string answer, out = head + "\r\nConnection: close\r\n\r\n";
        char chunk[4096];
        if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
            out.clear();
        } else if (expectContinue) {
            send(fd, out.data(), out.size(), MSG_NOSIGNAL);
            ssize_t n = recv(fd, chunk, sizeof chunk, 0);
            answer.assign(chunk, n > 0 ? static_cast<size_t>(n) : 0);
            out.clear();
            if (answer.rfind("HTTP/1.1 100", 0) != 0) {
                close(fd);
                return answer;  // refused before the body
            }
            answer.clear();
        }
        out += body;
        for (size_t done = 0; done < out.size();) {
            ssize_t n = send(fd, out.data() + done, out.size() - done, MSG_NOSIGNAL);
            done = n > 0 ? done + static_cast<size_t>(n) : out.size();
        }
        for (ssize_t n; (n = recv(fd, chunk, sizeof chunk, 0)) > 0;) {
            answer.append(chunk, static_cast<size_t>(n));
        }
        close(fd);
        return answer;
    }
    std::string Post(const std::string& target, const std::string& body, const std::string& type,
                     bool expectContinue = false) {
        std::string head = "POST " + target + " HTTP/1.1\r\nHost: 127.0.0.1";
        head += type.empty() ? "" : "\r\nContent-Type: " + type;
        head += body.empty() && type.empty() ? "" : "\r\nContent-Length: " + std::to_string(body.size());
        return Exchange(head + (expectContinue ? "\r\nExpect: 100-continue" : ""), body, expectContinue);
    }
};

// Two portals on one port would split the devices between them: the second one refuses to start.
TEST_F(PortalE2E, PortInUseIsRefused) {
    StartPortal(false);
    std::string port = portalUrl.substr(portalUrl.rfind(':') + 1);
    Outcome run = Shell("timeout 10 '" + kBin + "tola-portal' --no-https --dir '" + root.dir() +
                        "/second' --http-port " + port);
    EXPECT_EQ(run.status, 1);
    EXPECT_HAS(run.err, "127.0.0.1:" + port + ": the port is in use");
    // The highest port number is a port, not a usage error.
    std::string topOut = root.dir() + "/top.out";
    ChildProcess top(kBin + "tola-portal",
                     {"--no-https", "--dir", root.dir() + "/top", "--http-port", "65535"}, topOut);
    EXPECT_TRUE(waitForText(topOut, "65535")) << readWholeFile(topOut);
    EXPECT_LACKS(readWholeFile(topOut), "usage:");
    // Log lines carry the time: ISO 8601, UTC, milliseconds.
    EXPECT_TRUE(std::regex_search(
        readWholeFile(portalOut),
        std::regex("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z tola-portal: ready ")))
        << readWholeFile(portalOut);
}

TEST_F(PortalE2E, AdminApiTakesWhatCurlSends) {
    StartPortal(false);
    // Beyond 8 KB: a document of about 12 KB, its end marked.
    json big = {{"ResultCode", 0},
                {"Version", "3"},
                {"Configuration", json::array({{{"Comment", std::string(12000, 'x') + "END"}}})}};
    const std::string refused =
        json({{"ResultCode", 0},
              {"Configuration", json::parse(R"([{"LANSettings": {"RouterIPv4Address": "8.8.8.8"}}])")}})
            .dump();
    struct Case {
        std::string target, body, type;
        bool expectContinue;
        int status;
        std::string answerHas;
        int queuedAfter;  // answers queued for "T" afterwards
    } cases[] = {
        {"/admin/reset", "", "", false, 200, "{}", 0},
        {"/admin/answers?imei=T", "", "", false, 400, "answers are", 0},
        {"/admin/answers?imei=T", R"({"ResultCode": 95})", kForm, false, 200,
         "\"queued\": [\n    {\n      \"ResultCode\": 95", 1},
        {"/admin/answers?imei=T", big.dump(), kForm, true, 200, "xEND", 2},
        {"/admin/answers?imei=T&check=1", refused, kForm, false, 422, "\"code\": 158", 2},
        {"/admin/answers?imei=T", refused, kForm, false, 200, "8.8.8.8", 3},
        {"/admin/devices", "", "", false, 200, "\"queued\": 3", 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.target + " " + c.body.substr(0, 40));
        std::string answer = Post(c.target, c.body, c.type, c.expectContinue);
        EXPECT_EQ(StatusOf(answer), c.status) << answer.substr(0, 400);
        EXPECT_HAS(answer.substr(0, 20000), c.answerHas);
        EXPECT_EQ(Queued("T"), c.queuedAfter);
    }
}

// The console's form: a refused document comes back in the page with the device's text and is
// not queued; an accepted one is queued and the browser is sent to the device's page. Whatever
// the operator typed is shown escaped.
TEST_F(PortalE2E, ConsoleFormChecksTheDocumentAndEscapesWhatItShows) {
    StartPortal(false);
    const std::string lan = FormValue(R"([{"LANSettings": {"RouterIPv4Address": "8.8.8.8"}}])");
    struct Case {
        std::string body;
        int status;
        std::vector<std::string> has, hasNot;
        int queued;
    } cases[] = {
        {"imei=D1&code=0&version=1&document=" + lan,
         422,
         {"code 158", "Invalid Private IP address", "8.8.8.8&quot;"},
         {},
         0},
        {"imei=D1&code=0&document=" + FormValue("[{\"a\":\n  }]"), 422, {"line 2, column 3"}, {}, 0},
        {"imei=D1&code=x1&document=", 422, {"Result code: a whole number"}, {}, 0},
        {"imei=%3Cb%3E&code=0&interval=%3Ci%3E&document=",
         422,
         {"&lt;b&gt;", "&quot;&lt;i&gt;&quot;"},
         {"<b>", "<i>"},
         0},
        {"imei=D1&code=0&force=1&document=" + lan,
         303,
         {"Location: /device?imei=D1&queued=1&document=unchecked"},
         {},
         1},
        {"imei=D1&code=0&version=2&document=" +
             FormValue(R"([{"DevicePreferences": {"LEDEnabled": false}}])"),
         303,
         {"Location: /device?imei=D1&queued=1&document=accepted"},
         {},
         2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.body);
        std::string answer = Post("/admin/console/queue", c.body, kForm);
        EXPECT_EQ(StatusOf(answer), c.status) << answer.substr(0, 300);
        for (const std::string& text : c.has) {
            EXPECT_HAS(answer, text);
        }
        for (const std::string& text : c.hasNot) {
            EXPECT_LACKS(answer, text);
        }
        EXPECT_EQ(Queued("D1"), c.queued);
    }
    std::string page = Exchange("GET /device?imei=D1 HTTP/1.1\r\nHost: 127.0.0.1", "");
    EXPECT_HAS(page, "Content-Security-Policy: default-src 'none'");
    EXPECT_HAS(page, "LEDEnabled");
}

}  // namespace
}  // namespace tola_test
