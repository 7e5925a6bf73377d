// tola-portal's admin API and console form as operators use them (the exchanges in
// tests/corpus/e2e/portal_cases.tsv), and a second portal on a port in use. Its command line is
// in the CLI cases.
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
                         htons(static_cast<uint16_t>(std::stoi(portalUrl.substr(17)))),
                         {htonl(INADDR_LOOPBACK)},
                         {}};
        timeval timeout{5, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        std::string answer, request = head + "\r\nConnection: close\r\n\r\n" + (expectContinue ? "" : body);
        char chunk[65536];
        connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
        send(fd, request.data(), request.size(), MSG_NOSIGNAL);
        ssize_t n = expectContinue ? recv(fd, chunk, sizeof chunk, 0) : 0;
        if (expectContinue && std::string(chunk, n > 0 ? n : 0).rfind("HTTP/1.1 100", 0) != 0) {
            close(fd);
            return std::string(chunk, n > 0 ? n : 0);  // refused before the body
        }
        send(fd, body.data(), expectContinue ? body.size() : 0, MSG_NOSIGNAL);
        while ((n = recv(fd, chunk, sizeof chunk, 0)) > 0) {
            answer.append(chunk, static_cast<size_t>(n));
        }
        close(fd);
        return answer;
    }
};

// Two portals on one port would split the devices between them: the second one refuses to start.
TEST_F(PortalE2E, PortInUseIsRefused) {
    StartPortal(false);
    std::string port = portalUrl.substr(17);
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

// curl's ways of sending (no body, large form-encoded bodies behind "Expect: 100-continue") and the
// console's form.
TEST_F(PortalE2E, AdminApiAndConsoleFormTakeWhatCurlAndBrowsersSend) {
    StartPortal(false);
    // Beyond 8 KB: an answer of about 12 KB, its end marked.
    json big = {{"ResultCode", 0},
                {"Configuration", json::array({{{"Comment", std::string(12000, 'x') + "END"}}})}};
    for (std::vector<std::string> row : ReadCases("portal_cases.tsv")) {
        SCOPED_TRACE(row[0] + " " + row[2]);
        std::string body = Replace(Replace(row[2], "\\n", "\n"), "@BIG@", big.dump());
        size_t document = body.find("document=");
        if (document != std::string::npos) {
            body = body.substr(0, document + 9) + FormValue(body.substr(document + 9));
        }
        std::string head = row[0] + " HTTP/1.1\r\nHost: 127.0.0.1";
        head += row[1].empty() ? "" : "\r\nContent-Type: " + kForm;
        head += body.empty() && row[1].empty() ? "" : "\r\nContent-Length: " + std::to_string(body.size());
        bool expectContinue = row[1] == "form+continue";
        std::string answer =
            Exchange(head + (expectContinue ? "\r\nExpect: 100-continue" : ""), body, expectContinue);
        EXPECT_EQ(StatusOf(answer), std::stoi(row[3])) << answer.substr(0, 400);
        size_t equals = row[4].find('=');
        EXPECT_EQ(Queued(row[4].substr(0, equals)), std::stoi(row[4].substr(equals + 1)));
        for (size_t i = 5; i < row.size(); ++i) {
            std::string part = Replace(row[i], "\\n", "\n");
            if (part[0] == '!') {
                EXPECT_LACKS(answer, part.substr(1));
            } else {
                EXPECT_HAS(answer.substr(0, 20000), part);
            }
        }
    }
}

}  // namespace
}  // namespace tola_test
