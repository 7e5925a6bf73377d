// The reference of the document's keys (tola-devicectl keys) comes from a describing run of the
// handlers. Each described key, given a value of the wrong JSON kind and a value outside what it
// accepts, must be refused by the real parser with the code and user text the reference shows.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "test_env.h"
#include "tola_agent.h"
#include "tola_json_handlers.h"

namespace {

using namespace tola_json;

struct Described {
    std::string path, key;
    std::string wrongKind;  // a JSON value of another kind than the key takes
    std::vector<std::string> outside;
    int typeCode, valueCode;
    std::string typeUser, valueUser;
};

class Sink : public KeyTableSink {
  public:
    void group(const std::string& path) override { mPath = path; }
    void table(const KeyRule* rules, size_t count, GroupCodes codes) override {
        for (size_t i = 0; i < count; ++i) {
            const KeyRule& r = rules[i];
            Described d{mPath,          r.key, r.kind == Kind::Number ? "\"x\"" : "5",  {},
                        codes.typeCode, 0,     r.typeUser != nullptr ? r.typeUser : "", ""};
            if (r.kind == Kind::Enum || r.kind == Kind::EnumText) {
                d.outside = {"\"no such choice\""};
            } else if (r.kind == Kind::Number && r.max > r.min) {
                d.outside = {std::to_string(r.min - 1), std::to_string(r.max + 1)};
            } else if (r.kind == Kind::Text && r.accept != nullptr) {
                // One of these breaks every text check the handlers have (length limits).
                d.outside = {"\"\"", "\"" + std::string(300, 'x') + "\""};
            }
            if (!d.outside.empty()) {
                d.valueCode = codes.valueCode;
                d.valueUser = r.valueUser != nullptr ? r.valueUser : "";
            }
            keys.push_back(d);
        }
    }
    void note(const KeyNote& n) override {
        if (n.typeCode != 0 && n.key[0] != '(') {
            keys.push_back(Described{mPath, n.key, "5", {}, n.typeCode, 0, n.typeUser, ""});
        }
    }
    std::vector<Described> keys;

  private:
    std::string mPath;
};

// A document element holding value at path.key: "A.B" is a sub-object, "A.K[]" an array element;
// the device lists are arrays of objects themselves.
std::string documentFor(const std::string& path, const std::string& key, const std::string& value) {
    std::string inner = "{\"" + key + "\": " + value + "}";
    std::vector<std::string> parts;
    for (size_t start = 0;;) {
        size_t dot = path.find('.', start);
        parts.push_back(path.substr(start, dot - start));
        if (dot == std::string::npos) {
            break;
        }
        start = dot + 1;
    }
    if (parts.size() == 1 && (path == "BlockedDevices" || path == "WhiteListedDevices")) {
        inner = "[" + inner + "]";
    }
    for (size_t i = parts.size(); i-- > 0;) {
        std::string name = parts[i];
        if (name.size() > 2 && name.compare(name.size() - 2, 2, "[]") == 0) {
            name.resize(name.size() - 2);
            inner = "[" + inner + "]";
        }
        inner = "{\"" + name + "\": " + inner + "}";
    }
    return "[" + inner + "]";
}

TEST(KeyReference, EveryDescribedRefusalIsTheParsersOwn) {
    tola_test::TempRoot root;
    Sink sink;
    {
        TOLAAgent agent;
        describeKeyTables(agent, sink);
    }
    ASSERT_GT(sink.keys.size(), 130u);
    int valueChecks = 0;
    for (const Described& d : sink.keys) {
        SCOPED_TRACE(d.path + "." + d.key);
        auto parse = [&](const std::string& value, int& code, std::string& error) {
            TOLAAgent agent;
            agent.InitializeSharedMemory();
            agent.ResetObjectData();
            TOLAJSONParser parser(&agent);
            code = parser.ProcessJSONData(documentFor(d.path, d.key, value));
            error = agent.GetErrorMessage();
        };
        int code = 0;
        std::string error;
        parse(d.wrongKind, code, error);
        EXPECT_EQ(code, d.typeCode);
        EXPECT_EQ(error, d.typeUser);
        if (d.outside.empty()) {
            continue;
        }
        bool refused = false;
        for (const std::string& value : d.outside) {
            parse(value, code, error);
            if (code != 0) {
                refused = true;
                EXPECT_EQ(code, d.valueCode) << value;
                EXPECT_EQ(error, d.valueUser) << value;
            }
        }
        EXPECT_TRUE(refused);
        ++valueChecks;
    }
    EXPECT_GT(valueChecks, 30);
}

}  // namespace
