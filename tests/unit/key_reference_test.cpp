// The reference of the document's keys (tola-devicectl keys) comes from a describing run of the
// handlers. Each described key, given a value of the wrong JSON kind and a value outside what it
// accepts, must be refused by the real parser with the code and user text the reference shows.
#include <gtest/gtest.h>

#include <string>
#include <utility>
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
        bool refused = false;
        for (const std::string& value : d.outside) {
            auto result = parse(value);
            refused = refused || result.first != 0;
            if (result.first != 0) {
                EXPECT_EQ(result, std::make_pair(d.valueCode, d.valueUser)) << value;
            }
        }
        EXPECT_TRUE(refused);
        ++valueChecks;
    }
    EXPECT_GT(valueChecks, 30);
}

}  // namespace
