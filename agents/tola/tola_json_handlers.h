// Shared machinery of the group handlers (tola_json_handlers_*.cpp): a group's keys are described
// by a table of KeyRule (JSON kind, where the value goes, the texts of a refusal), and one routine
// walks a group object against its table. Internal to the JSON reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tola_agent.h"
#include "tola_json_parser.h"
#include "tola_log.h"

namespace tola_json {

// Where a key's value is stored: a field of a settings member, or nothing when the member could
// not be had from the device (the key is then skipped).
struct Slot {
    void* p;
    size_t size;  // 1 or 4 for numbers and flags, the buffer size for texts
};
using SlotFn = Slot (*)(TOLAAgent& agent);

#define TOLA_VALUE_SLOT(accessor)                                                               \
    [](TOLAAgent& a) -> ::tola_json::Slot {                                                     \
        auto* r = a.accessor();                                                                 \
        return r != nullptr ? ::tola_json::Slot{r, sizeof(*r)} : ::tola_json::Slot{nullptr, 0}; \
    }
#define TOLA_FIELD_SLOT(accessor, member)                                      \
    [](TOLAAgent& a) -> ::tola_json::Slot {                                    \
        auto* r = a.accessor();                                                \
        return r != nullptr ? ::tola_json::Slot{&r->member, sizeof(r->member)} \
                            : ::tola_json::Slot{nullptr, 0};                   \
    }

// One accepted text of an enumeration and what it stores (a code, or a text when storedText is set).
struct Choice {
    const char* text;
    int code;
    const char* storedText;
};

enum class Kind {
    Bool,      // true/false, stored 1/0
    Text,      // string, bounded copy; `accept` may refuse it
    Number,    // JSON number, stored as int; refused outside [min, max] when max > min
    Enum,      // string among the choices, stored as its code
    EnumText,  // string among the choices, stored as the choice's storedText
    Sounds,    // true/false setting or clearing `mask` in a flag word
};

struct KeyRule {
    const char* key;
    Kind kind;
    TolaField field;
    SlotFn slot;
    const char* typeLog;   // "[%s]:[%s] - ..." written on a wrong JSON kind
    const char* typeUser;  // the error message then
    const Choice* choices;
    size_t choiceCount;
    const char* valueLog;   // written on a refused value (%s the text, or %d the number)
    const char* valueUser;  // the error message then
    bool (*accept)(const char* text);
    long long min, max;
    uint32_t mask;
};

KeyRule boolKey(const char* key, TolaField field, SlotFn slot, const char* typeLog, const char* typeUser);
KeyRule textKey(const char* key, TolaField field, SlotFn slot, const char* typeLog, const char* typeUser,
                bool (*accept)(const char*) = nullptr, const char* valueLog = nullptr,
                const char* valueUser = nullptr);
KeyRule numberKey(const char* key, TolaField field, SlotFn slot, const char* typeLog, const char* typeUser,
                  long long min = 0, long long max = 0, const char* valueLog = nullptr,
                  const char* valueUser = nullptr);
template <size_t N>
KeyRule enumKey(const char* key, TolaField field, SlotFn slot, const char* typeLog, const char* typeUser,
                const Choice (&choices)[N], const char* valueLog, const char* valueUser) {
    return KeyRule{key, Kind::Enum, field,     slot,    typeLog, typeUser, choices,
                   N,   valueLog,   valueUser, nullptr, 0,       0,        0};
}
template <size_t N>
KeyRule enumTextKey(const char* key, TolaField field, SlotFn slot, const char* typeLog, const char* typeUser,
                    const Choice (&choices)[N], const char* valueLog, const char* valueUser) {
    return KeyRule{key, Kind::EnumText, field,     slot,    typeLog, typeUser, choices,
                   N,   valueLog,       valueUser, nullptr, 0,       0,        0};
}
KeyRule soundKey(const char* key, uint32_t mask, const char* typeLog, const char* typeUser);

// The codes a group's refusals return.
struct GroupCodes {
    int typeCode;   // wrong JSON kind
    int valueCode;  // a value outside its list or limits
};

// Handles one member (key, value) against the rules. true when a rule knew the key (whatever the
// outcome); *rc is 0 or the refusal's code.
bool applyRule(TOLAAgent& agent, const char* key, yajl_val value, const KeyRule* rules, size_t ruleCount,
               GroupCodes codes, int* rc);

// Walks every member of a group object in document order against the rules; unknown keys are
// ignored. 0, or the first refusal's code.
int applyRules(TOLAAgent& agent, yajl_val group, const KeyRule* rules, size_t ruleCount, GroupCodes codes);
template <size_t N>
int applyRules(TOLAAgent& agent, yajl_val group, const KeyRule (&rules)[N], GroupCodes codes) {
    return applyRules(agent, group, rules, N, codes);
}

// The member `name` of element when it has the wanted kind, else null.
yajl_val groupOf(yajl_val element, const char* name, yajl_type kind);

// The settings object the handlers fill (null without one).
inline TOLAAgent* agentOf(context_t* ctx) {
    return ctx != nullptr ? ctx->agent : nullptr;
}

// Opens a group handler: the group object `name` of element, with the settings object in agent.
// When either is missing, writes the group's NO-object line (absentFormat, given the handler's
// name) and returns null: the group then stays as it was.
yajl_val openGroup(yajl_val element, const char* name, context_t* ctx, const char* absentFormat,
                   const char* handler, TOLAAgent*& agent);

// ---- Describing the tables (tola-devicectl keys, docs/configuration-reference.md) ------------
// A key that no KeyRule describes (lists, switches of predefined services, access-control flags):
// what the handler reads and the texts it refuses with.
struct KeyNote {
    const char* key;
    const char* json;    // the JSON kind it takes
    std::string limits;  // allowed values, limits, what it stores
    int typeCode;        // 0 when a wrong kind is not refused
    const char* typeUser;
    int valueCode;  // 0 when no value is refused
    const char* valueUser;
};

// Receives the tables in a describing run: each group (a dotted path for sub-objects, "[]" for
// the elements of an array), then the tables and notes that belong to it.
class KeyTableSink {
  public:
    virtual ~KeyTableSink() = default;
    virtual void group(const std::string& path) = 0;
    virtual void table(const KeyRule* rules, size_t count, GroupCodes codes) = 0;
    virtual void note(const KeyNote& note) = 0;
};

// Runs every group handler in document order in describing mode: openGroup hands out an empty
// group and the rule engine reports each table instead of storing anything. The agent is only
// a context (some handlers read a member of it after their table); use one on a scratch root.
void describeKeyTables(TOLAAgent& agent, KeyTableSink& sink);
// For handlers that walk members themselves: reports the table in a describing run, else nothing.
void describeTable(const KeyRule* rules, size_t count, GroupCodes codes);
// The keys of `group` that the handlers read without a table.
void describeNetworkKeys(const std::string& group, KeyTableSink& sink);
void describeDeviceKeys(const std::string& group, KeyTableSink& sink);
// What a text check accepts, as a person reads it (registered next to the check), or null.
const char* describeTextCheck(bool (*accept)(const char*));
struct TextCheckDescription {
    TextCheckDescription(bool (*accept)(const char*), const char* text);
};
#define TOLA_DESCRIBE_TEXT_CHECK(fn, text) \
    const ::tola_json::TextCheckDescription kTextCheckDescription_##fn(fn, text)

// Writes a refusal: the log line (syslog and debug log, level 3) and the user text.
int refuse(TOLAAgent& agent, int code, const char* log, const char* user);

// Bounded copy of text into a field of `size` bytes, always terminated.
void copyText(char* dst, size_t size, const char* text);

}  // namespace tola_json
