// parse FILE: runs a configuration document through the agent's real parser against the simulated
// device (ARDO_ROOT, as the agent) and prints the result code, the error message, the present
// groups and fields with what they hold, and the access-control entries the document set; on
// stderr what is wrong with it. Exits 1 when the agent would refuse it.
//
// The access-control entries go to a shared-memory segment as in the agent, but to a private one:
// the tool points ARDO_SHM_KEY at a key of its own (derived from its process id) before the agent
// object exists, and removes the segment afterwards, so that a running agent's list is untouched.
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "devicectl.h"
#include "settings_dump.h"
#include "sys_core.h"
#include "tola_agent.h"
#include "tola_json_parser.h"

namespace {

const char* const kParseUsage = "parse FILE   (run a configuration document through the agent's parser)";

int runParse(const devicectl::Args& args) {
    if (args.size() > 1) {
        return devicectl::refuseArgument("parse", args[1], kParseUsage);
    }
    if (args.empty()) {
        return devicectl::usageError(kParseUsage);
    }
    std::string text;
    if (args[0] == "-") {
        text = devicectl::readStdin();
    } else {
        std::ifstream in(args[0], std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "tola-devicectl: cannot read %s\n", args[0].c_str());
            return 1;
        }
        std::ostringstream content;
        content << in.rdbuf();
        text = content.str();
    }

    // A private ACL segment: 0x7e000000 plus the process id stays clear of the device's 9999.
    std::string key = std::to_string(0x7e000000 + (static_cast<int>(getpid()) & 0xffffff));
    setenv("ARDO_SHM_KEY", key.c_str(), 1);

    int code = 0;
    nlohmann::json out;
    {
        TOLAAgent agent;
        agent.InitializeSharedMemory();
        TOLAJSONParser parser(&agent);
        code = parser.ProcessJSONData(text);
        out = settings_dump::dump(agent);
        out["acl"] = settings_dump::aclEntries(agent);
        out = nlohmann::json{{"code", code},
                             {"error", agent.GetErrorMessage()},
                             {"present", out["present"]},
                             {"groups", out["groups"]},
                             {"acl", out["acl"]}};
        if (agent.AclBlock() != nullptr) {
            shmdt(agent.AclBlock());
        }
        agent.Uninitialize();  // closes the platform session the agent opened
    }
    int id = shmget(sys_getACLSharedMemoryKey(), 0, 0);
    if (id >= 0) {
        shmctl(id, IPC_RMID, nullptr);
    }
    std::printf("%s\n", out.dump(2).c_str());
    std::fflush(stdout);
    devicectl::explainDocument(text, code, out["error"].get<std::string>());
    return code == 0 ? 0 : 1;
}

}  // namespace

DEVICECTL_VERB("parse", kParseUsage, runParse);
