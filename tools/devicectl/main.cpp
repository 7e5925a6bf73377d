#include <cstdio>
#include <cstring>
#include <iostream>
#include <iterator>
#include <map>

#include "devicectl.h"

namespace devicectl {

namespace {
std::map<std::string, Verb>& registry() {
    static std::map<std::string, Verb> verbs;
    return verbs;
}

int help() {
    std::fprintf(stderr,
                 "tola-devicectl: control panel of the simulated device (ARDO_ROOT, ARDO_BUS_ADDRESS)\n\n");
    for (const auto& entry : registry()) {
        std::fprintf(stderr, "  tola-devicectl %s\n", entry.second.usage);
    }
    return 2;
}
}  // namespace

VerbRegistration::VerbRegistration(const char* name, const char* usage, VerbFunction run) {
    registry().emplace(name, Verb{name, usage, run});
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
    if (argc < 2 || std::strcmp(argv[1], "help") == 0 || std::strcmp(argv[1], "--help") == 0) {
        return devicectl::help();
    }
    auto it = devicectl::registry().find(argv[1]);
    if (it == devicectl::registry().end()) {
        std::fprintf(stderr, "tola-devicectl: unknown command '%s'\n", argv[1]);
        return devicectl::help();
    }
    devicectl::Args args(argv + 2, argv + argc);
    return it->second.run(args);
}
