// The command lines of tola_agent, tola-devicectl and tola-portal as an operator types them, and
// tola-portal's admin API and console form as curl and a browser use them: the cases in
// tests/corpus/cases/e2e_cli.tsv and e2e_portal.tsv, each file run in order against one device
// and one portal.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cctype>

#include "case_rows.h"
#include "e2e_fixture.h"

namespace tola_test {
namespace {

// An expected text: a part of the text, "!" and a text never in it, or "=" and the whole text;
// "\\n" is a line break.
void ExpectText(const std::string& actual, std::string expected) {
    if (!expected.empty() && expected[0] == '=') {
        EXPECT_EQ(actual, expected.substr(1));
    } else if (!expected.empty() && expected[0] == '!') {
        EXPECT_LACKS(actual, expected.substr(1));
    } else {
        EXPECT_HAS(actual.substr(0, 20000), expected);
    }
}

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

class TableE2E : public E2ETest {
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

TEST_F(TableE2E, CommandLines) {
    StartPortal(false);  // for a second one on its port
    // Placeholders, each followed by what it stands for. A portal that starts when it should not
    // would run until stopped: the time limit ends it.
    const std::string places[] = {"@CTL@",    kCtl,
                                  "@AGENT@",  "'" + kAgentBinary + "'",
                                  "@PORTAL@", "timeout -k 5 10 '" + kBin + "tola-portal'",
                                  "@ROOT@",   root.dir(),
                                  "@DOCS@",   std::string(TOLA_SOURCE_DIR) + "/tests/corpus/e2e",
                                  "@PORT@",   portalUrl.substr(17)};
    for (std::vector<std::string> fields : tola_test::readCases("e2e_cli.tsv", 4)) {
        for (size_t i = 0; i < std::size(places); i += 2) {
            fields[0] = Replace(fields[0], places[i], places[i + 1]);
            fields[3] = Replace(fields[3], places[i], places[i + 1]);
        }
        const std::string& command = fields[0];
        SCOPED_TRACE(command);
        std::string device = root.readFile("/var/lib/ardo/device.json");
        Outcome run = Shell("(" + command + ") < /dev/null");
        EXPECT_EQ(run.status, std::stoi(fields[1])) << run.err;
        ExpectText(run.out, fields[2]);
        ExpectText(run.err, fields[3]);
        if (command.find(" validate ") != std::string::npos) {
            EXPECT_EQ(root.readFile("/var/lib/ardo/device.json"), device);  // a dry run
        }
    }
}

// curl's ways of sending (no body, large form-encoded bodies behind "Expect: 100-continue") and the
// console's form.
TEST_F(TableE2E, AdminApiAndConsoleForm) {
    StartPortal(false);
    // Beyond 8 KB: an answer of about 12 KB, its end marked.
    json big = {{"ResultCode", 0},
                {"Configuration", json::array({{{"Comment", std::string(12000, 'x') + "END"}}})}};
    for (const std::vector<std::string>& row : tola_test::readCases("e2e_portal.tsv", 0)) {
        SCOPED_TRACE(row[0] + " " + row[2]);
        std::string body = Replace(row[2], "@BIG@", big.dump());
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
            ExpectText(answer, row[i]);
        }
    }
}

}  // namespace
}  // namespace tola_test
