// Configuration documents as cases (corpus/cases/validate.txt and documents.txt), one a row:
//   code | device state set first ({JSON pointer: value}) | document | user text ("*": any)
//   | a text the log holds | values the settings hold ({JSON pointer into the settings dump: value})
//   | flags present ("!name": absent; "none": no flag at all)
//   | list counts (blocked=N white=N filtering=N forwarding=N reserved=N)
// A document is JSON text or "@name", a file in tests/corpus; in the text, <<N x ITEM>> stands for
// N copies of ITEM joined by commas, each "#" in a copy replaced by its index in two hex digits. A
// single element written out (an object) goes to the reserved-address handler, which documents
// never reach.
#pragma once

#include <algorithm>
#include <sstream>

#include "../../tools/devicectl/settings_dump.h"
#include "case_rows.h"
#include "device_state.h"
#include "test_env.h"
#include "tola_agent.h"
#include "tola_json_parser.h"
#include "vorn_dbg.h"

namespace tola_test {

inline int handleReserved(TOLAAgent& agent, const std::string& element) {
    yajl_val tree = tola_tree_parse(element);
    context_t ctx{};
    ctx.agent = &agent;
    int rc = handleReservedIpSettingsInfo(tree, &ctx);
    tola_tree_free(tree);
    return rc;
}

inline std::string expandCopies(std::string text) {
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

// Runs each case on a fresh device, through the parser and, when asked, validation.
inline void runDocumentCases(const std::string& file, bool validate) {
    using nlohmann::json;
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

}  // namespace tola_test
