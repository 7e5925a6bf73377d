// tola-devicectl: the simulated device's control panel. Each verb group lives in its own
// devicectl_*.cpp and registers its verbs with DEVICECTL_VERB; main() dispatches on argv[1].
#pragma once

#include <string>
#include <vector>

namespace devicectl {

using Args = std::vector<std::string>;  // the arguments after the verb
using VerbFunction = int (*)(const Args& args);

struct Verb {
    const char* name;   // first word of the command line, e.g. "encrypt" or "state"
    const char* usage;  // one line for the help text, e.g. "encrypt --key K   (stdin -> stdout)"
    VerbFunction run;   // exit status: 0 success, 1 failure, 2 usage error
};

// Registers a verb at static-initialisation time.
struct VerbRegistration {
    VerbRegistration(const char* name, const char* usage, VerbFunction run);
};

#define DEVICECTL_CONCAT_(a, b) a##b
#define DEVICECTL_CONCAT(a, b) DEVICECTL_CONCAT_(a, b)
#define DEVICECTL_VERB(name, usage, fn) \
    static ::devicectl::VerbRegistration DEVICECTL_CONCAT(devicectlVerb_, __LINE__)(name, usage, fn)

// Prints "usage: tola-devicectl <usage>" to stderr and returns 2.
int usageError(const char* usage);
// Refuses an argument by name ("unknown option '--x'" or "unexpected argument 'x'"), then as
// usageError.
int refuseArgument(const char* verb, const std::string& argument, const char* usage);
// The root the tool acts on, for a person: "PATH (ARDO_ROOT)" or the real paths.
std::string rootDescription();
// Value of "--name VALUE" in args, or fallback.
std::string option(const Args& args, const std::string& name, const std::string& fallback = "");
bool hasOption(const Args& args, const std::string& name);
// Whole standard input.
std::string readStdin();

// The configuration document's keys as the agent's key tables describe them (devicectl_keys.cpp).
struct KeyRow {
    std::string name;                            // the key as written in documents
    std::string key, json, limits, kind, value;  // the reference's cells
    int typeCode = 0, valueCode = 0;             // 0: not refused
    std::string typeUser, valueUser;
};
struct KeyGroup {
    std::string path;  // "Group", "Group.Sub", "Group.Key[]" (the elements of an array)
    std::vector<KeyRow> rows;
};
std::vector<KeyGroup> keyCatalogue();

// What is wrong with a configuration document, on stderr (devicectl_diagnose.cpp): a syntax error
// with its line and column, a top level that is not a non-empty array, unknown keys with the
// closest known one, and for a refused document the key and value that broke the rule. code and
// message are the agent's outcome. Changes nothing.
void explainDocument(const std::string& text, int code, const std::string& message);

}  // namespace devicectl
