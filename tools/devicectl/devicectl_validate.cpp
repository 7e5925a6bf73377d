// validate FILE: would the simulated device (ARDO_ROOT) take this configuration document? Parses
// and validates it against the device's current state with the agent's own code and prints the
// code, the user text and, for an accepted document, the platform calls that applying it would
// make, in order. The device itself is not touched.
//
// How: the device state and the agent's state are copied into a scratch root, the real apply
// runs there (reboots do not end the process, the bus is not reached), the scratch journal is
// read and the scratch root removed. Only the calls are printed: their results in the scratch
// root say nothing about the device.
#include <stdlib.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "device_state.h"
#include "devicectl.h"
#include "sys_core.h"
#include "tola_agent.h"

namespace fs = std::filesystem;

namespace {

const char* const kValidateUsage =
    "validate FILE   (parse and validate a configuration document against the device; list the calls "
    "applying it would make)";

// Restores an environment variable when it goes out of scope.
class EnvOverride {
  public:
    EnvOverride(const char* name, const std::string& value) : mName(name) {
        const char* old = std::getenv(name);
        mHad = old != nullptr;
        mOld = mHad ? old : "";
        setenv(name, value.c_str(), 1);
    }
    ~EnvOverride() {
        if (mHad) {
            setenv(mName, mOld.c_str(), 1);
        } else {
            unsetenv(mName);
        }
    }
    EnvOverride(const EnvOverride&) = delete;
    EnvOverride& operator=(const EnvOverride&) = delete;

  private:
    const char* mName;
    std::string mOld;
    bool mHad;
};

bool readDocument(const std::string& name, std::string& text) {
    if (name == "-") {
        text = devicectl::readStdin();
        return true;
    }
    std::ifstream in(name, std::ios::binary);
    if (!in) {
        return false;
    }
    std::ostringstream content;
    content << in.rdbuf();
    text = content.str();
    return true;
}

// Copies what the agent reads of the device into the scratch root: the device state and the
// agent's own state folder (runtime record and access-control file).
void copyDevice(const fs::path& from, const fs::path& to) {
    std::error_code ignored;
    for (const char* dir : {"var/lib/ardo", "opt/ardo/data/tola"}) {
        fs::create_directories(to / dir, ignored);
        if (fs::exists(from / dir, ignored)) {
            fs::copy(from / dir, to / dir, fs::copy_options::recursive | fs::copy_options::overwrite_existing,
                     ignored);
        }
    }
    fs::remove(to / "var/lib/ardo/calls.jsonl", ignored);
    fs::remove(to / "var/lib/ardo/device.json.lock", ignored);
}

int runValidate(const devicectl::Args& args) {
    if (args.size() > 1) {
        return devicectl::refuseArgument("validate", args[1], kValidateUsage);
    }
    if (args.empty()) {
        return devicectl::usageError(kValidateUsage);
    }
    std::string text;
    if (!readDocument(args[0], text)) {
        std::fprintf(stderr, "tola-devicectl: cannot read %s\n", args[0].c_str());
        return 1;
    }
    const char* deviceRoot = std::getenv("ARDO_ROOT");
    char scratchName[] = "/tmp/tola-validate-XXXXXX";
    if (mkdtemp(scratchName) == nullptr) {
        std::perror("tola-devicectl: scratch root");
        return 1;
    }
    fs::path scratch(scratchName);
    copyDevice(deviceRoot != nullptr && *deviceRoot != '\0' ? fs::path(deviceRoot) : fs::path("/"), scratch);

    const fs::path aclFile = scratch / "opt/ardo/data/tola/acl_config.xml";
    auto readAcl = [&aclFile]() {
        std::ifstream in(aclFile, std::ios::binary);
        std::ostringstream content;
        content << in.rdbuf();
        return content.str();
    };
    int code = 0;
    bool aclRewritten = false;
    std::string message;
    std::vector<ardo::json> calls;
    {
        EnvOverride root("ARDO_ROOT", scratch.string());
        // A private ACL segment (as for parse), so a running agent's list is untouched.
        EnvOverride shm("ARDO_SHM_KEY", std::to_string(0x7d000000 + (static_cast<int>(getpid()) & 0xffffff)));
        // The dry run stays in this process and off the device's bus: the publication is
        // recorded, not delivered.
        ardo::deviceStateUpdate([](ardo::json& state) {
            state["power"]["end_process_on_reboot"] = false;
            state["faults"]["MsgbusHandler::Initialize"] = 1;
        });
        {
            TOLAAgent agent;
            agent.Initialize();
            std::string aclBefore = readAcl();
            code = agent.ProcessResponse(text, message);
            aclRewritten = readAcl() != aclBefore;
            if (agent.AclBlock() != nullptr) {
                shmdt(agent.AclBlock());
            }
        }
        int id = shmget(sys_getACLSharedMemoryKey(), 0, 0);
        if (id >= 0) {
            shmctl(id, IPC_RMID, nullptr);
        }
        std::ifstream journal(scratch / "var/lib/ardo/calls.jsonl");
        for (std::string line; std::getline(journal, line);) {
            ardo::json entry = ardo::json::parse(line, nullptr, false);
            if (entry.is_object()) {
                calls.push_back(entry);
            }
        }
    }
    std::error_code ignored;
    fs::remove_all(scratch, ignored);

    std::printf("code %d\n", code);
    std::printf("message %s\n", message.c_str());
    std::fflush(stdout);
    devicectl::explainDocument(text, code, message);
    if (code != 0) {
        return 1;
    }
    std::printf("calls %zu\n", calls.size());
    for (const ardo::json& call : calls) {
        std::printf("  %s %s\n", call.value("call", "").c_str(),
                    call["args"].dump(-1, ' ', false, ardo::json::error_handler_t::replace).c_str());
    }
    // Not a platform call, but part of applying: the agent's own access-control file.
    std::printf("acl_config.xml %s\n", aclRewritten ? "rewritten" : "unchanged");
    return 0;
}

}  // namespace

DEVICECTL_VERB("validate", kValidateUsage, runValidate);
