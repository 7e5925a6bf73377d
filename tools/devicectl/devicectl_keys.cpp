// keys [GROUP]: every group and key of the configuration document, in Markdown, taken from the
// agent's own key tables (the handlers run in describing mode), so the reference cannot drift from
// what the agent reads. docs/configuration-reference.md is this output; a test compares the two.
//
// The describing run needs a settings object, which reads the device: it gets a scratch root of its
// own, removed afterwards, and logs nothing.
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "devicectl.h"
#include "tola_agent.h"
#include "tola_json_handlers.h"

namespace fs = std::filesystem;
using namespace tola_json;

namespace {

const char* const kKeysUsage = "keys [GROUP]   (reference of the configuration document's groups and keys)";

using Row = devicectl::KeyRow;
using Group = devicectl::KeyGroup;

// Text in a table cell: "|" would end the cell.
std::string cell(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '|') {
            out += "\\|";
        } else {
            out += c;
        }
    }
    return out;
}

std::string refusal(int code, const char* user) {
    if (code == 0) {
        return "not refused";
    }
    return std::to_string(code) + " \"" + (user != nullptr ? user : "") + "\"";
}

std::string choices(const KeyRule& rule) {
    std::string out;
    for (size_t i = 0; i < rule.choiceCount; ++i) {
        const Choice& c = rule.choices[i];
        out += (i > 0 ? ", " : "");
        out +=
            std::string("\"") + c.text + "\" → " +
            (rule.kind == Kind::EnumText ? std::string("\"") + c.storedText + "\"" : std::to_string(c.code));
    }
    return out;
}

Row describeRule(const KeyRule& rule, GroupCodes codes) {
    Row row;
    row.name = rule.key;
    row.typeCode = codes.typeCode;
    row.typeUser = rule.typeUser != nullptr ? rule.typeUser : "";
    row.key = std::string("`") + rule.key + "`";
    row.kind = refusal(codes.typeCode, rule.typeUser);
    row.value = "not refused";
    switch (rule.kind) {
        case Kind::Bool:
            row.json = "true/false";
            row.limits = "stored 1/0";
            break;
        case Kind::Sounds: {
            char mask[32];
            std::snprintf(mask, sizeof mask, "0x%x", static_cast<unsigned>(rule.mask));
            row.json = "true/false";
            row.limits = std::string("sets or clears bit ") + mask + " of the notification sounds";
            break;
        }
        case Kind::Text: {
            row.json = "string";
            const char* check = rule.accept != nullptr ? describeTextCheck(rule.accept) : nullptr;
            row.limits =
                check != nullptr ? check : (rule.accept != nullptr ? "checked" : "any text (bounded copy)");
            if (rule.accept != nullptr) {
                row.valueCode = codes.valueCode;
            }
            break;
        }
        case Kind::Number:
            row.json = "number";
            if (rule.max > rule.min) {
                row.limits = std::to_string(rule.min) + " to " + std::to_string(rule.max);
                row.valueCode = codes.valueCode;
            } else {
                row.limits = "any (its integer, clamped to the int range)";
            }
            break;
        case Kind::Enum:
        case Kind::EnumText:
            row.json = "string";
            row.limits = choices(rule);
            row.valueCode = codes.valueCode;
            break;
    }
    if (row.valueCode != 0) {
        row.valueUser = rule.valueUser != nullptr ? rule.valueUser : "";
        row.value = refusal(row.valueCode, rule.valueUser);
    }
    return row;
}

class Collector : public KeyTableSink {
  public:
    void group(const std::string& path) override { groups.push_back(Group{path, {}}); }
    void table(const KeyRule* rules, size_t count, GroupCodes codes) override {
        for (size_t i = 0; i < count; ++i) {
            groups.back().rows.push_back(describeRule(rules[i], codes));
        }
    }
    void note(const KeyNote& n) override {
        Row row;
        row.name = n.key;
        row.key = std::string("`") + n.key + "`";
        row.json = n.json;
        row.limits = n.limits;
        row.kind = refusal(n.typeCode, n.typeUser);
        row.value = refusal(n.valueCode, n.valueUser);
        row.typeCode = n.typeCode;
        row.typeUser = n.typeUser != nullptr ? n.typeUser : "";
        row.valueCode = n.valueCode;
        row.valueUser = n.valueUser != nullptr ? n.valueUser : "";
        groups.back().rows.push_back(row);
    }
    std::vector<Group> groups;
};

}  // namespace

std::vector<devicectl::KeyGroup> devicectl::keyCatalogue() {
    char scratchName[] = "/tmp/tola-keys-XXXXXX";
    if (mkdtemp(scratchName) == nullptr) {
        return {};
    }
    std::string oldRoot = std::getenv("ARDO_ROOT") != nullptr ? std::getenv("ARDO_ROOT") : "";
    bool hadRoot = std::getenv("ARDO_ROOT") != nullptr;
    setenv("ARDO_ROOT", scratchName, 1);
    setenv("ARDO_LOG_LEVEL", "0", 1);
    Collector collector;
    {
        TOLAAgent agent;
        describeKeyTables(agent, collector);
    }
    std::error_code ignored;
    fs::remove_all(scratchName, ignored);
    if (hadRoot) {
        setenv("ARDO_ROOT", oldRoot.c_str(), 1);
    } else {
        unsetenv("ARDO_ROOT");
    }
    return collector.groups;
}

namespace {

const char* const kPreamble =
    "# Configuration document reference\n"
    "\n"
    "Generated by `tola-devicectl keys` from the agent's own key tables; do not edit by hand.\n"
    "Regenerate with `build/bin/tola-devicectl keys > docs/configuration-reference.md`\n"
    "(`tola-devicectl keys GROUP` prints one group).\n"
    "\n"
    "A document is a JSON array of objects. Each object (an element) holds groups by name, read in\n"
    "the order below; the first refusal ends the document, and its code and user text become the\n"
    "receipt's result code and error message. A key a group does not know is ignored (`tola-devicectl\n"
    "validate` warns about it). An element that carries `AccessControlSettings` is read for that group\n"
    "alone. A group that is not a JSON object is ignored like an absent one. Sub-objects are written\n"
    "`Group.Sub`, the elements of an array `Group.Key[]`.\n"
    "\n"
    "Columns: the JSON kind the key takes; the values it accepts (a listed text → the code stored);\n"
    "the code and user text when the key holds another JSON kind; the code and user text when the\n"
    "value is outside what it accepts. An accepted document is then checked against the device as a\n"
    "whole (docs/validation.md): those rules, their codes and texts are not per key.\n";

void print(const Group& g) {
    std::printf("\n## %s\n\n", g.path.c_str());
    std::printf("| Key | JSON | Accepts | Wrong kind | Refused value |\n|---|---|---|---|---|\n");
    for (const Row& r : g.rows) {
        std::printf("| %s | %s | %s | %s | %s |\n", cell(r.key).c_str(), cell(r.json).c_str(),
                    cell(r.limits).c_str(), cell(r.kind).c_str(), cell(r.value).c_str());
    }
}

int runKeys(const devicectl::Args& args) {
    if (!args.empty() && args[0].rfind("-", 0) == 0) {
        return devicectl::refuseArgument("keys", args[0], kKeysUsage);
    }
    if (args.size() > 1) {
        return devicectl::refuseArgument("keys", args[1], kKeysUsage);
    }
    std::vector<Group> groups = devicectl::keyCatalogue();
    if (groups.empty()) {
        std::fprintf(stderr, "tola-devicectl keys: no scratch root for the describing run\n");
        return 1;
    }
    if (args.empty()) {
        std::fputs(kPreamble, stdout);
        for (const Group& g : groups) {
            print(g);
        }
        return 0;
    }
    bool found = false;
    for (const Group& g : groups) {
        if (g.path == args[0] || g.path.rfind(args[0] + ".", 0) == 0) {
            print(g);
            found = true;
        }
    }
    if (!found) {
        std::fprintf(stderr, "tola-devicectl keys: unknown group '%s'; the groups are:", args[0].c_str());
        for (const Group& g : groups) {
            if (g.path.find('.') == std::string::npos) {
                std::fprintf(stderr, " %s", g.path.c_str());
            }
        }
        std::fprintf(stderr, "\n");
        return 2;
    }
    return 0;
}

}  // namespace

DEVICECTL_VERB("keys", kKeysUsage, runKeys);
