// tola_bench: Google Benchmark's runner, plus
//   tola_bench --write-large-document FILE   writes the largest accepted configuration document
//                                            (for footprint measurements of tola-devicectl parse);
//   tola_bench --measure-document            one warm-up and one measured call of each side of
//                                            the document comparison, for callgrind.
#include <benchmark/benchmark.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "large_document.h"
#include "measure.h"

namespace {

// Every benchmark runs against a private simulated device (its own root and ACL segment), so
// that nothing touches the machine's real paths or a running agent's list.
class BenchDevice {
  public:
    BenchDevice() {
        char dir[] = "/tmp/tola-bench-XXXXXX";
        mRoot = mkdtemp(dir) != nullptr ? dir : "";
        mKey = 0x7c000000 + (getpid() & 0xffffff);
        setenv("ARDO_ROOT", mRoot.c_str(), 1);
        setenv("ARDO_SHM_KEY", std::to_string(mKey).c_str(), 1);
        setenv("ARDO_TIME_SCALE", "1000000", 1);
    }
    ~BenchDevice() {
        int id = shmget(mKey, 0, 0);
        if (id >= 0) {
            shmctl(id, IPC_RMID, nullptr);
        }
        if (!mRoot.empty()) {
            std::string cmd = "rm -rf '" + mRoot + "'";
            int ignored = std::system(cmd.c_str());
            (void)ignored;
        }
    }

  private:
    std::string mRoot;
    int mKey;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "--write-large-document") == 0) {
        std::ofstream(argv[2]) << makeLargeDocument(99, 99, 20, 21, 200);
        return 0;
    }
    BenchDevice device;
    if (argc == 2 && std::strcmp(argv[1], "--measure-document") == 0) {
        const std::string doc = makeLargeDocument(99, 99, 20, 21, 200);
        // The first calls load the device state and warm the allocator; the second ones count.
        int rc = processDocument(doc) | yajlTreeParse(doc);
        resetDocument();
        rc |= measureProcessJSONData(doc) | measureYajlTreeParse(doc);
        return rc;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
