// Validating and applying the largest configuration document the agent accepts, on the bench's
// private simulated device: ProcessResponse from the text to the last setter (the bus is not
// reached; the publication is still attempted and journalled).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "device_state.h"
#include "large_document.h"
#include "sys_core.h"
#include "tola_agent.h"

namespace {

size_t journalLines() {
    std::ifstream in(sys_fsPath("/var/lib/ardo/calls.jsonl"));
    size_t n = 0;
    for (std::string line; std::getline(in, line);) {
        ++n;
    }
    return n;
}

void BM_ProcessResponse_LargestDocument(benchmark::State& state) {
    const std::string doc = makeLargeDocument(99, 99, 20, 21, 200);
    ardo::deviceStateSet("/faults/MsgbusHandler::Initialize", 1);
    TOLAAgent agent;
    agent.Initialize();
    int rc = 0;
    size_t calls = 0;
    std::string message;
    for (auto _ : state) {
        state.PauseTiming();
        unlink(sys_fsPath("/var/lib/ardo/calls.jsonl").c_str());
        agent.ResetObjectData();
        state.ResumeTiming();
        rc = agent.ProcessResponse(doc, message);
        benchmark::DoNotOptimize(rc);
        state.PauseTiming();
        calls = journalLines();
        state.ResumeTiming();
    }
    if (rc != 0) {
        state.SkipWithError(("the document was refused: " + std::to_string(rc) + " " + message).c_str());
    }
    state.counters["document_bytes"] = static_cast<double>(doc.size());
    state.counters["journal_calls"] = static_cast<double>(calls);
}
BENCHMARK(BM_ProcessResponse_LargestDocument)->Unit(benchmark::kMillisecond);

}  // namespace
