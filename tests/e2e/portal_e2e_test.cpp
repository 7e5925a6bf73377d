// tola-portal's command line and admin API as operators use them: curl's ways of sending
// (no body, large form-encoded bodies behind "Expect: 100-continue") and the console's form.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>

#include "e2e_fixture.h"

using ardo::json;
using tola_test::ChildProcess;
using tola_test::readWholeFile;
using tola_test::waitForText;

namespace {

const std::string kPortal = std::string(TOLA_BIN_DIR) + "/tola-portal";

// Runs tola-portal to its end; its exit status, standard output and standard error.
int RunPortal(const std::string& args, std::string& out, std::string& err, const std::string& dir) {
    // A portal that starts when it should not would run until stopped: the time limit ends it.
    std::string command =
        "timeout 10 '" + kPortal + "' " + args + " > '" + dir + "/out' 2> '" + dir + "/err'";
    int rc = std::system(command.c_str());
    out = readWholeFile(dir + "/out");
    err = readWholeFile(dir + "/err");
    return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
}

// One HTTP/1.1 exchange written by hand, so that the test controls every header: the request
// head (without the blank line) and body; with expectContinue the body follows the interim
// "100 Continue" as curl sends it. The whole answer (status line, headers, body).
std::string Exchange(int port, const std::string& head, const std::string& body,
                     bool expectContinue = false) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        if (fd >= 0) {
            close(fd);
        }
        return "";
    }
    timeval timeout{5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    auto sendAll = [fd](const std::string& text) {
        for (size_t done = 0; done < text.size();) {
            ssize_t n = send(fd, text.data() + done, text.size() - done, MSG_NOSIGNAL);
            if (n <= 0) {
                return;
            }
            done += static_cast<size_t>(n);
        }
    };
    std::string answer;
    char chunk[4096];
    sendAll(head + "\r\nConnection: close\r\n\r\n");
    if (expectContinue) {
        ssize_t n = recv(fd, chunk, sizeof chunk, 0);
        answer.append(chunk, n > 0 ? static_cast<size_t>(n) : 0);
        if (answer.rfind("HTTP/1.1 100", 0) != 0) {
            close(fd);
            return answer;  // refused before the body
        }
        answer.clear();
    }
    sendAll(body);
    for (ssize_t n; (n = recv(fd, chunk, sizeof chunk, 0)) > 0;) {
        answer.append(chunk, static_cast<size_t>(n));
    }
    close(fd);
    return answer;
}

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

class PortalE2E : public tola_test::E2ETest {
  protected:
    int Port() { return std::stoi(portalUrl.substr(portalUrl.rfind(':') + 1)); }
    std::string Post(const std::string& target, const std::string& body, const std::string& type,
                     bool expectContinue = false) {
        std::string head = "POST " + target + " HTTP/1.1\r\nHost: 127.0.0.1";
        if (!type.empty()) {
            head += "\r\nContent-Type: " + type;
        }
        if (!body.empty() || !type.empty()) {
            head += "\r\nContent-Length: " + std::to_string(body.size());
        }
        if (expectContinue) {
            head += "\r\nExpect: 100-continue";
        }
        return Exchange(Port(), head, body, expectContinue);
    }
};

TEST_F(PortalE2E, CommandLineIsCheckedByName) {
    struct Case {
        const char* args;
        int status;
        const char* out;  // expected on standard output
        const char* err;  // expected on standard error
    } cases[] = {
        {"--help", 0, "usage: tola-portal", ""},
        {"help", 0, "usage: tola-portal", ""},
        {"--frob", 2, "", "unknown option --frob"},
        {"extra", 2, "", "unexpected argument \"extra\""},
        {"--http-port 65536", 2, "", "--http-port: not a port number"},
        {"--https-port 8o", 2, "", "--https-port: not a port number"},
        {"--http-port -1", 2, "", "--http-port: not a port number"},
        {"--dir", 2, "", "--dir needs a value"},
        {"--no-http --no-https", 2, "", "nothing to serve"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        std::string out, err;
        EXPECT_EQ(RunPortal(c.args, out, err, root.dir()), c.status);
        EXPECT_NE(out.find(c.out), std::string::npos) << out;
        EXPECT_NE(err.find(c.err), std::string::npos) << err;
        if (c.status == 0) {
            EXPECT_EQ(err, "");
        }
    }
}

// Two portals on one port would split the devices between them: the second one refuses to start.
TEST_F(PortalE2E, PortInUseIsRefused) {
    StartPortal(false);
    std::string port = std::to_string(Port());
    std::string out, err;
    EXPECT_EQ(
        RunPortal("--no-https --dir '" + root.dir() + "/second' --http-port " + port, out, err, root.dir()),
        1);
    EXPECT_NE(err.find("127.0.0.1:" + port + ": the port is in use"), std::string::npos) << err;
    // The highest port number is a port, not a usage error.
    ChildProcess top(kPortal, {"--no-https", "--dir", root.dir() + "/top", "--http-port", "65535"},
                     root.dir() + "/top.out");
    EXPECT_TRUE(waitForText(root.dir() + "/top.out", "65535")) << readWholeFile(root.dir() + "/top.out");
    EXPECT_EQ(readWholeFile(root.dir() + "/top.out").find("usage:"), std::string::npos);
    // Log lines carry the time: ISO 8601, UTC, milliseconds.
    EXPECT_TRUE(std::regex_search(
        readWholeFile(portalOut),
        std::regex("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z tola-portal: ready ")))
        << readWholeFile(portalOut);
}

TEST_F(PortalE2E, AdminApiTakesWhatCurlSends) {
    StartPortal(false);
    const std::string form = "application/x-www-form-urlencoded";  // curl -d
    // Beyond 8 KB: a document of about 12 KB, its end marked.
    json big = {{"ResultCode", 0},
                {"Version", "3"},
                {"Configuration", json::array({{{"Comment", std::string(12000, 'x') + "END"}}})}};
    const std::string refused =
        json({{"ResultCode", 0},
              {"Configuration", json::parse(R"([{"LANSettings": {"RouterIPv4Address": "8.8.8.8"}}])")}})
            .dump();
    struct Case {
        const char* name;
        std::string target, body, type;
        bool expectContinue;
        int status;
        std::string answerHas;
        int queuedAfter;  // answers queued for "T" afterwards
    } cases[] = {
        {"bodyless reset", "/admin/reset", "", "", false, 200, "{}", 0},
        {"bodyless answers", "/admin/answers?imei=T", "", "", false, 400, "answers are", 0},
        {"answer echoed", "/admin/answers?imei=T", R"({"ResultCode": 95})", form, false, 200,
         R"("queued": [)"
         "\n"
         R"(    {)"
         "\n"
         R"(      "ResultCode": 95)",
         1},
        {"12 KB form-encoded, 100-continue", "/admin/answers?imei=T", big.dump(), form, true, 200, "xEND", 2},
        {"checked and refused", "/admin/answers?imei=T&check=1", refused, form, false, 422, "\"code\": 158",
         2},
        {"unchecked", "/admin/answers?imei=T", refused, form, false, 200, "8.8.8.8", 3},
        {"bodyless devices", "/admin/devices", "", "", false, 200, "\"queued\": 3", 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string answer = Post(c.target, c.body, c.type, c.expectContinue);
        EXPECT_EQ(StatusOf(answer), c.status) << answer.substr(0, 400);
        EXPECT_NE(answer.find(c.answerHas), std::string::npos) << answer.substr(0, 400);
        json devices = json::parse(Admin("/admin/devices", ""), nullptr, false);
        EXPECT_EQ(devices.contains("T") ? devices["T"].value("queued", -1) : 0, c.queuedAfter);
    }
}

// The console's form: a refused document comes back in the page with the device's text and is
// not queued; an accepted one is queued and the browser is sent to the device's page. Whatever
// the operator typed is shown escaped.
TEST_F(PortalE2E, ConsoleFormChecksTheDocumentAndEscapesWhatItShows) {
    StartPortal(false);
    const std::string form = "application/x-www-form-urlencoded";
    struct Case {
        const char* name;
        std::string body;
        int status;
        std::vector<std::string> has, hasNot;
        int queued;
    } cases[] = {
        {"refused document",
         "imei=D1&code=0&version=1&document=" +
             FormValue(R"([{"LANSettings": {"RouterIPv4Address": "8.8.8.8"}}])"),
         422,
         {"code 158", "Invalid Private IP address", "8.8.8.8&quot;"},
         {},
         0},
        {"not JSON",
         "imei=D1&code=0&document=" + FormValue("[{\"a\":\n  }]"),
         422,
         {"line 2, column 3"},
         {},
         0},
        {"bad code", "imei=D1&code=x1&document=", 422, {"Result code: a whole number"}, {}, 0},
        {"markup in the fields",
         "imei=%3Cb%3E&code=0&interval=%3Ci%3E&document=",
         422,
         {"&lt;b&gt;", "&quot;&lt;i&gt;&quot;"},
         {"<b>", "<i>"},
         0},
        {"forced",
         "imei=D1&code=0&force=1&document=" +
             FormValue(R"([{"LANSettings": {"RouterIPv4Address": "8.8.8.8"}}])"),
         303,
         {"Location: /device?imei=D1&queued=1&document=unchecked"},
         {},
         1},
        {"accepted",
         "imei=D1&code=0&version=2&document=" +
             FormValue(R"([{"DevicePreferences": {"LEDEnabled": false}}])"),
         303,
         {"Location: /device?imei=D1&queued=1&document=accepted"},
         {},
         2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string answer = Post("/admin/console/queue", c.body, form);
        EXPECT_EQ(StatusOf(answer), c.status) << answer.substr(0, 300);
        for (const std::string& text : c.has) {
            EXPECT_NE(answer.find(text), std::string::npos) << text;
        }
        for (const std::string& text : c.hasNot) {
            EXPECT_EQ(answer.find(text), std::string::npos) << text;
        }
        json devices = json::parse(Admin("/admin/devices", ""), nullptr, false);
        EXPECT_EQ(devices.contains("D1") ? devices["D1"].value("queued", -1) : 0, c.queued);
    }
    std::string page = Exchange(Port(), "GET /device?imei=D1 HTTP/1.1\r\nHost: 127.0.0.1", "");
    EXPECT_NE(page.find("Content-Security-Policy: default-src 'none'"), std::string::npos);
    EXPECT_NE(page.find("LEDEnabled"), std::string::npos);
}

}  // namespace
