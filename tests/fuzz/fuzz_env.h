// Shared by the fuzz targets: one simulated device per fuzzing process (a temporary ARDO_ROOT
// laid out like a real device, its own ACL segment key, compressed time) and the debug log kept
// short, so that millions of inputs neither fill the disk nor slow down on a growing file.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "sys_core.h"
#include "test_env.h"
#include "vorn_dbg.h"
#include "xmldata.h"

namespace tola_fuzz {

// The device root of this process, created on first use and removed at exit.
struct Holder {
    // The log's lines are formatted (they carry the input) at every level.
    Holder() : level(setenv("ARDO_LOG_LEVEL", "7", 1)) { vorn_dbg_start(); }
    ~Holder() { vorn_dbg_stop(); }
    int level;
    tola_test::TempRoot root{false, 100000.0};
};
inline tola_test::TempRoot& Device() {
    static Holder holder;
    return holder.root;
}

// Empties the debug log every few thousand inputs.
inline void TrimLog() {
    static unsigned calls = 0;
    if (++calls % 4096 == 0) {
        std::string path = Device().path("/var/log/tola.log");
        if (truncate(path.c_str(), 0) != 0) {
            // A missing log is fine: it is opened again on the next line.
        }
    }
}

// Aborts (a finding) when the stored record no longer reads as XML: whatever an input stored,
// the next start must find the record, or the device forgets its portal.
inline void RequireReadableRecord() {
    std::string path = sys_fsPath("/opt/ardo/data/tola/acl_config.xml");
    if (xmldata_initialize(path.c_str(), path.c_str()) != 0) {
        std::abort();
    }
    xmldata_close();
}

inline std::string Text(const uint8_t* data, size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}

}  // namespace tola_fuzz
