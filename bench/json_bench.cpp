// Parsing the largest configuration document the agent accepts, against the simulated device.
#include <benchmark/benchmark.h>

#include <string>

#include "large_document.h"
#include "measure.h"
#include "tola_agent.h"
#include "tola_json_parser.h"

namespace {

void BM_ProcessJSONData_LargestDocument(benchmark::State& state) {
    const std::string doc = makeLargeDocument(99, 99, 20, 21, 200);
    TOLAAgent agent;
    agent.InitializeSharedMemory();
    int rc = 0;
    for (auto _ : state) {
        TOLAJSONParser parser(&agent);
        rc = parser.ProcessJSONData(doc);
        benchmark::DoNotOptimize(rc);
        state.PauseTiming();
        agent.ResetObjectData();
        state.ResumeTiming();
    }
    if (rc != 0) {
        state.SkipWithError("the document was refused");
    }
    state.counters["document_bytes"] = static_cast<double>(doc.size());
}
BENCHMARK(BM_ProcessJSONData_LargestDocument)->Unit(benchmark::kMillisecond);

void BM_TreeBuild(benchmark::State& state) {
    const std::string doc = makeLargeDocument(99, 99, 20, 21, 200);
    for (auto _ : state) {
        yajl_val tree = tola_tree_parse(doc);
        benchmark::DoNotOptimize(tree);
        tola_tree_free(tree);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.size()));
}
BENCHMARK(BM_TreeBuild)->Unit(benchmark::kMicrosecond);

}  // namespace

int measureProcessJSONData(const std::string& doc) {
    return processDocument(doc);
}

namespace {
// One agent for the process (its shared-memory list goes with the bench device).
TOLAAgent& documentAgent() {
    static TOLAAgent* const agent = [] {
        TOLAAgent* created = new TOLAAgent;
        created->InitializeSharedMemory();
        return created;
    }();
    return *agent;
}
}  // namespace

int processDocument(const std::string& doc) {
    TOLAJSONParser parser(&documentAgent());
    return parser.ProcessJSONData(doc);
}

void resetDocument() {
    documentAgent().ResetObjectData();
}
