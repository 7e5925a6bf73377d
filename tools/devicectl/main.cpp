#include <sys/utsname.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>
#include <map>
#include <set>

#include "devicectl.h"

namespace devicectl {

namespace {
std::map<std::string, Verb>& registry() {
    static std::map<std::string, Verb> verbs;
    return verbs;
}

const char* const kFooter =
    "\nExit status: 0 success; 1 failure (a refused document, an unreadable file, no bus, a decryption\n"
    "that fails); 2 usage error (unknown verb, option or argument).\n"
    "Environment: ARDO_ROOT (the simulated device's root; unset: this machine's real paths),\n"
    "ARDO_BUS_ADDRESS (the device's bus; unset: the session bus), ARDO_SHM_KEY (the ACL segment).\n"
    "`tola-devicectl help VERB` or `tola-devicectl VERB --help` shows one verb.\n";

void printHelp(FILE* out) {
    std::fprintf(out, "tola-devicectl: control panel of the simulated device\n\n");
    for (const auto& entry : registry()) {
        std::fprintf(out, "  tola-devicectl %s\n", entry.second.usage);
    }
    std::fprintf(out, "%s", kFooter);
    std::fprintf(out, "Device root now: %s\n", rootDescription().c_str());
}

int verbHelp(const Verb& verb) {
    std::printf("usage: tola-devicectl %s\n", verb.usage);
    std::printf("%s", kFooter);
    return 0;
}

// Verbs that read or change the simulated device under ARDO_ROOT.
const std::set<std::string> kRootVerbs = {"clock", "fault", "parse", "sms", "state", "status", "validate"};
// The options each verb takes (anything else starting with "--" is refused by name).
const std::map<std::string, std::set<std::string>> kOptions = {
    {"encrypt", {"--key"}}, {"decrypt", {"--key"}}, {"sms", {"--key"}}};

// A PC, as opposed to the device (32-bit ARM), where unset ARDO_ROOT means the real paths.
bool onPC() {
    struct utsname name {};
    return uname(&name) != 0 || std::strncmp(name.machine, "arm", 3) != 0;
}

void announceRoot() {
    const char* root = std::getenv("ARDO_ROOT");
    if (root == nullptr || *root == '\0') {
        if (onPC()) {
            std::fprintf(stderr,
                         "tola-devicectl: warning: ARDO_ROOT is not set: acting on this machine's real paths "
                         "(/var/lib/ardo, /opt/ardo, /var/log)\n");
        }
        return;
    }
    std::fprintf(stderr, "tola-devicectl: device root %s\n", root);
}
}  // namespace

VerbRegistration::VerbRegistration(const char* name, const char* usage, VerbFunction run) {
    registry().emplace(name, Verb{name, usage, run});
}

std::string rootDescription() {
    const char* root = std::getenv("ARDO_ROOT");
    return root != nullptr && *root != '\0' ? std::string(root) + " (ARDO_ROOT)"
                                            : "/ (ARDO_ROOT unset: the real paths)";
}

int refuseArgument(const char* verb, const std::string& argument, const char* usage) {
    bool option = argument.size() > 1 && argument[0] == '-' && !(argument[1] >= '0' && argument[1] <= '9');
    std::fprintf(stderr, "tola-devicectl %s: %s '%s'\n", verb,
                 option ? "unknown option" : "unexpected argument", argument.c_str());
    return usageError(usage);
}

int usageError(const char* usage) {
    std::fprintf(stderr, "usage: tola-devicectl %s\n", usage);
    return 2;
}

std::string option(const Args& args, const std::string& name, const std::string& fallback) {
    for (size_t i = 0; i + 1 < args.size(); ++i) {
        if (args[i] == name) {
            return args[i + 1];
        }
    }
    return fallback;
}

bool hasOption(const Args& args, const std::string& name) {
    for (const auto& a : args) {
        if (a == name) {
            return true;
        }
    }
    return false;
}

std::string readStdin() {
    return std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
}

}  // namespace devicectl

int main(int argc, char** argv) {
    if (argc < 2) {
        devicectl::printHelp(stderr);
        return 2;
    }
    std::string first = argv[1];
    if (first == "help" || first == "--help" || first == "-h") {
        if (argc == 2) {
            devicectl::printHelp(stdout);
            return 0;
        }
        auto verb = devicectl::registry().find(argv[2]);
        if (verb == devicectl::registry().end() || argc > 3) {
            std::fprintf(stderr, "tola-devicectl help: unknown verb '%s'\n", argv[argc > 3 ? 3 : 2]);
            return 2;
        }
        return devicectl::verbHelp(verb->second);
    }
    auto it = devicectl::registry().find(first);
    if (it == devicectl::registry().end()) {
        std::fprintf(stderr, "tola-devicectl: unknown %s '%s'\n", first[0] == '-' ? "option" : "verb",
                     first.c_str());
        devicectl::printHelp(stderr);
        return 2;
    }
    devicectl::Args args(argv + 2, argv + argc);
    auto allowed = devicectl::kOptions.find(first);
    for (const std::string& arg : args) {
        if (arg == "--help" || arg == "-h") {
            return devicectl::verbHelp(it->second);
        }
        if (arg.size() > 2 && arg.compare(0, 2, "--") == 0 &&
            (allowed == devicectl::kOptions.end() || allowed->second.count(arg) == 0)) {
            return devicectl::refuseArgument(it->second.name, arg, it->second.usage);
        }
    }
    if (devicectl::kRootVerbs.count(first) != 0) {
        devicectl::announceRoot();
    }
    return it->second.run(args);
}
