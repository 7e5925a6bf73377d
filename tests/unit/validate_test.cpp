// Configuration documents through the real parser and, for validate.txt, validation, against the
// simulated device; the cases and their columns are in corpus/cases/documents.txt and validate.txt.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "../../tools/devicectl/settings_dump.h"
#include "case_rows.h"
#include "device_state.h"
#include "test_env.h"
#include "tola_agent.h"
#include "tola_json_handlers.h"
#include "tola_json_parser.h"
#include "vorn_dbg.h"

namespace {

using nlohmann::json;
using namespace tola_test;
using namespace tola_json;

int handleReserved(TOLAAgent& agent, const std::string& element) {
    yajl_val tree = tola_tree_parse(element);
    context_t ctx{};
    ctx.agent = &agent;
    int rc = handleReservedIpSettingsInfo(tree, &ctx);
    tola_tree_free(tree);
    return rc;
}

std::string expandCopies(std::string text) {
    for (size_t at; (at = text.find("<<")) != std::string::npos;) {
        size_t x = text.find(" x ", at), end = text.find(">>", at);
        std::string item = text.substr(x + 3, end - x - 3), copies;
        for (int i = 0, n = std::stoi(text.substr(at + 2)); i < n; ++i) {
            char index[16];
            snprintf(index, sizeof index, "%02x", i);
            std::string copy = item;
            for (size_t hash; (hash = copy.find('#')) != std::string::npos;) {
                copy.replace(hash, 1, index);
            }
            copies += (i == 0 ? "" : ",") + copy;
        }
        text.replace(at, end + 2 - at, copies);
    }
    return text;
}

void runDocumentCases(const std::string& file, bool validate) {
    for (const CaseRow& c : readCaseRows(file)) {
        SCOPED_TRACE(c.where);
        TempRoot root(validate);  // bare: the device's factory state is enough for validation
        vorn_dbg_stop();
        vorn_dbg_start();
        TOLAAgent agent;
        if (!validate) {
            agent.InitializeSharedMemory();  // and never reset: as a freshly started agent meets it
        }
        json state = c[1].empty() ? json::object() : json::parse(c[1]);
        for (const auto& [pointer, value] : state.items()) {
            ardo::deviceStateSet(pointer, value);
        }
        std::string doc =
            c[2][0] != '@' ? expandCopies(c[2])
                           : readWholeFile(std::string(TOLA_SOURCE_DIR) + "/tests/corpus/" + c[2].substr(1));
        TOLAJSONParser parser(&agent);
        int code = c[2][0] == '{' ? handleReserved(agent, doc) : parser.ProcessJSONData(doc);
        EXPECT_EQ(validate && code == 0 ? agent.ValidateObjectParameters() : code, c.num(0));
        if (c[3] != "*") {
            EXPECT_EQ(agent.GetErrorMessage(), c[3]);
        }
        EXPECT_NE(root.readFile("/var/log/tola.log").find(c[4]), std::string::npos) << c[4];
        json dump = settings_dump::dump(agent);
        dump["acl"] = settings_dump::aclEntries(agent);
        json values = c[5].empty() ? json::object() : json::parse(c[5]);
        for (const auto& [pointer, expected] : values.items()) {
            EXPECT_EQ(dump.value(json::json_pointer(pointer), json()), expected) << pointer;
        }
        const json& present = dump["present"];
        std::istringstream flags(c[6]), counts(c[7]);
        for (std::string flag; flags >> flag;) {
            size_t n = std::count(present.begin(), present.end(), flag.substr(flag[0] == '!' ? 1 : 0));
            EXPECT_TRUE(flag == "none" ? present.empty() : (n > 0) != (flag[0] == '!')) << flag;
        }
        for (std::string count; counts >> count;) {
            std::string list = count.substr(0, count.find('='));
            int* n = list == "blocked"      ? agent.GetMacCount()
                     : list == "white"      ? agent.GetWhiteListMacCount()
                     : list == "filtering"  ? agent.GetPortFilteringAppsCount()
                     : list == "forwarding" ? agent.GetPortForwardingAppsCount()
                                            : agent.GetReservedAddrListCount();
            EXPECT_EQ(list + "=" + std::to_string(*n), count);
        }
    }
    vorn_dbg_stop();
}

TEST(DocumentCases, ParsedDocuments) {
    runDocumentCases("documents.txt", false);
}
TEST(DocumentCases, ValidatedDocuments) {
    runDocumentCases("validate.txt", true);
}

// The reserved-address handler, called on its own, keeps what it held before a list that stores
// nothing (the case files cover the document's lists).
TEST(DocumentCases, ReservedListsThatStoreNothingKeepTheirEntries) {
    TempRoot root;
    TOLAAgent agent;
    *agent.GetReservedAddrListCount() = 2;
    for (const char* text : {R"({"ReservedIpSettings": {"ReservedIpList": []}})",
                             R"({"ReservedIpSettings": {"ReservedIpList": [{"Mac": "x"}]}})"}) {
        EXPECT_EQ(handleReserved(agent, text), 0) << text;
        EXPECT_EQ(*agent.GetReservedAddrListCount(), 2) << text;
    }
}

int run(TOLAAgent& agent, const std::string& doc) {
    TOLAJSONParser parser(&agent);
    int code = parser.ProcessJSONData(doc);
    return code != 0 ? code : agent.ValidateObjectParameters();
}

// A settings object whose folder capacity cannot be had: resetting it fails with 200.
class NoFolderCountAgent : public TOLAAgent {
  public:
    int* GetSambaFolderNamesCount() override { return nullptr; }
};

TEST(ValidateTest, AFailingResetMasksTheValidationCode) {
    TempRoot root(true);
    NoFolderCountAgent agent;
    EXPECT_EQ(run(agent, R"([{"LANSettings": {"RouterIPv4Address": "8.8.8.8"}}])"), 200);
    EXPECT_STREQ(agent.GetErrorMessage(), "Reset Data - Received NULL pointer for samba folder count");
    NoFolderCountAgent passing;
    EXPECT_EQ(run(passing, R"([{"LANSettings": {"DHCPLeaseTime": 60}}])"), 0);
}

TEST(ValidateTest, BlockedDevicesAreForgottenOnceTheDocumentIsAccepted) {
    TempRoot root(true);
    std::string blocked = R"({"BlockedDevices": [{"DeviceMacAddress": "3C-22-FB-10-20-30"},
                                                 {"DeviceMacAddress": "02:00:00:00:00:01"}]})";
    TOLAAgent refused;
    EXPECT_EQ(run(refused, "[" + blocked + R"(, {"LANSettings": {"DHCPLeaseTime": 0}}])"), 158);
    EXPECT_EQ(root.readFile("/var/lib/ardo/calls.jsonl"), "");

    TOLAAgent dryRun;
    dryRun.SetValidationDryRun(true);
    EXPECT_EQ(run(dryRun, "[" + blocked + "]"), 0);
    EXPECT_EQ(root.readFile("/var/lib/ardo/calls.jsonl"), "");

    TOLAAgent agent;  // only the known device is deleted, once
    ASSERT_EQ(run(agent, "[" + blocked + "]"), 0);
    json line = json::parse(root.readFile("/var/lib/ardo/calls.jsonl"));
    line.erase("time");
    EXPECT_EQ(line,
              json::parse(R"({"call": "sys_deleteKnownDevice", "args": {"macAddress": "3c:22:fb:10:20:30"},
                                   "result": 0})"));
}

// The reference of the document's keys (tola-devicectl keys) comes from a describing run of the
// handlers. Each described key, given a value of the wrong JSON kind and a value outside what it
// accepts, must be refused by the real parser with the code and user text the reference shows.
struct Described {
    std::string path, key;
    std::string wrongKind;  // a JSON value of another kind than the key takes
    int typeCode, valueCode;
    std::string typeUser, valueUser;
    std::vector<std::string> outside{};  // values the key refuses; none for keys without a range
};

class Sink : public KeyTableSink {
  public:
    void group(const std::string& path) override { mPath = path; }
    void table(const KeyRule* rules, size_t count, GroupCodes gc) override {
        auto text = [](const char* user) { return std::string(user != nullptr ? user : ""); };
        for (size_t i = 0; i < count; ++i) {
            const KeyRule& r = rules[i];
            const char* wrong = r.kind == Kind::Number ? "\"x\"" : "5";
            Described d{mPath, r.key, wrong, gc.typeCode, gc.valueCode, text(r.typeUser), text(r.valueUser)};
            if (r.kind == Kind::Enum || r.kind == Kind::EnumText) {
                d.outside = {"\"no such choice\""};
            } else if (r.kind == Kind::Number && r.max > r.min) {
                d.outside = {std::to_string(r.min - 1), std::to_string(r.max + 1)};
            } else if (r.kind == Kind::Text && r.accept != nullptr) {
                // One of these breaks every text check the handlers have (length limits).
                d.outside = {"\"\"", "\"" + std::string(300, 'x') + "\""};
            }
            keys.push_back(d);
        }
    }
    void note(const KeyNote& n) override {
        if (n.typeCode != 0 && n.key[0] != '(') {
            keys.push_back(Described{mPath, n.key, "5", n.typeCode, 0, n.typeUser, ""});
        }
    }
    std::vector<Described> keys;
    std::string mPath;  // of the group being described
};

// A document element holding value at path.key: "A.B" is a sub-object, "A.K[]" an array element;
// the device lists are arrays of objects themselves.
std::string documentFor(const std::string& path, const std::string& key, const std::string& value) {
    std::string inner = "{\"" + key + "\": " + value + "}";
    if (path == "BlockedDevices" || path == "WhiteListedDevices") {
        inner = "[" + inner + "]";
    }
    for (std::string rest = path; !rest.empty();) {
        size_t dot = rest.rfind('.');
        std::string name = rest.substr(dot + 1);
        rest.resize(dot == std::string::npos ? 0 : dot);
        if (name.size() > 2 && name.compare(name.size() - 2, 2, "[]") == 0) {
            name.resize(name.size() - 2);
            inner = "[" + inner + "]";
        }
        inner = "{\"" + name + "\": " + inner + "}";
    }
    return "[" + inner + "]";
}

TEST(KeyReference, EveryDescribedRefusalIsTheParsersOwn) {
    TempRoot root;
    Sink sink;
    {
        TOLAAgent agent;
        describeKeyTables(agent, sink);
    }
    ASSERT_GT(sink.keys.size(), 130u);
    int valueChecks = 0;
    for (const Described& d : sink.keys) {
        SCOPED_TRACE(d.path + "." + d.key);
        auto parse = [&](const std::string& value) {
            TOLAAgent agent;
            agent.InitializeSharedMemory();
            agent.ResetObjectData();
            TOLAJSONParser parser(&agent);
            int code = parser.ProcessJSONData(documentFor(d.path, d.key, value));
            return std::make_pair(code, std::string(agent.GetErrorMessage()));
        };
        EXPECT_EQ(parse(d.wrongKind), std::make_pair(d.typeCode, d.typeUser));
        if (d.outside.empty()) {
            continue;
        }
        size_t accepted = 0;
        for (const std::string& value : d.outside) {
            auto [code, user] = parse(value);
            accepted += code == 0;
            EXPECT_TRUE(code == 0 || std::make_pair(code, user) == std::make_pair(d.valueCode, d.valueUser))
                << value << " gave " << code << " " << user;
        }
        EXPECT_LT(accepted, d.outside.size());
        ++valueChecks;
    }
    EXPECT_GT(valueChecks, 30);
}

}  // namespace
