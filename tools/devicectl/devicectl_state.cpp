// state show [PATH] | state set PATH VALUE: the simulated device state (created from the factory
// defaults when missing). PATH is a JSON pointer such as /settings/ledEnabled.
#include <cstdio>
#include <string>

#include "device_state.h"
#include "devicectl.h"

using ardo::json;

namespace {

const char* const kStateUsage =
    "state show [PATH] | state set PATH VALUE   (print the device state or one part of it, PATH a JSON "
    "pointer such as /settings/ledEnabled; change one value of the same JSON type)";

// The value at pointer in doc, or null when the pointer is malformed or names nothing.
const json* at(const json& doc, const std::string& pointer) {
    try {
        json::json_pointer p(pointer);
        return doc.contains(p) ? &doc.at(p) : nullptr;
    } catch (const json::exception&) {
        return nullptr;
    }
}

const char* typeName(const json& v) {
    return v.is_number() ? "number" : v.type_name();
}

int show(const std::string& pointer) {
    json state = ardo::deviceStateRead();
    const json* part = pointer.empty() ? &state : at(state, pointer);
    if (part == nullptr) {
        std::fprintf(stderr, "tola-devicectl state: no part %s in the device state\n", pointer.c_str());
        return 1;
    }
    std::printf("%s\n", part->dump(2).c_str());
    return 0;
}

// VALUE is taken as JSON when it parses, else as a string. The path must exist in the device state
// or its factory defaults (a typing mistake would otherwise add a value nothing reads), and the new
// value must have the old one's JSON type.
int set(const std::string& pointer, const std::string& text) {
    json value = json::parse(text, nullptr, false);
    if (value.is_discarded()) {
        value = text;
    }
    json state = ardo::deviceStateRead();
    const json* old = at(state, pointer);
    if (old == nullptr) {
        old = at(ardo::deviceFactoryState(), pointer);
    }
    if (old == nullptr) {
        std::fprintf(stderr, "tola-devicectl state set: unknown path %s (see tola-devicectl state show)\n",
                     pointer.c_str());
        return 2;
    }
    if (!old->is_null() && std::string(typeName(*old)) != typeName(value)) {
        std::fprintf(stderr, "tola-devicectl state set: %s holds %s %s; %s is %s %s\n", pointer.c_str(),
                     old->is_array() || old->is_object() ? "an" : "a", typeName(*old), text.c_str(),
                     value.is_array() || value.is_object() ? "an" : "a", typeName(value));
        return 2;
    }
    return ardo::deviceStateSet(pointer, value) ? 0 : 1;
}

int runState(const devicectl::Args& args) {
    if (args.empty()) {
        return devicectl::usageError(kStateUsage);
    }
    if (args[0] == "show") {
        if (args.size() > 2) {
            return devicectl::refuseArgument("state", args[2], kStateUsage);
        }
        return show(args.size() == 2 ? args[1] : "");
    }
    if (args[0] == "set") {
        if (args.size() > 3) {
            return devicectl::refuseArgument("state", args[3], kStateUsage);
        }
        if (args.size() != 3 || args[1].empty() || args[1][0] != '/') {
            return devicectl::usageError(kStateUsage);
        }
        return set(args[1], args[2]);
    }
    return devicectl::refuseArgument("state", args[0], kStateUsage);
}

}  // namespace

DEVICECTL_VERB("state", kStateUsage, runState);
