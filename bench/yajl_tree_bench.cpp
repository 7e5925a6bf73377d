// The floor of ProcessJSONData: yajl's own tree parser over the largest accepted document, with
// nothing of the agent. Kept apart from json_bench.cpp because the agent's reader declares value
// kinds of its own under yajl's names.
#include <benchmark/benchmark.h>
#include <yajl/yajl_tree.h>

#include <string>

#include "large_document.h"
#include "measure.h"

namespace {

void BM_YajlTreeParse(benchmark::State& state) {
    const std::string doc = makeLargeDocument(99, 99, 20, 21, 200);
    for (auto _ : state) {
        char error[128];
        yajl_val tree = yajl_tree_parse(doc.c_str(), error, sizeof error);
        if (tree == nullptr) {
            state.SkipWithError(error);
            break;
        }
        benchmark::DoNotOptimize(tree);
        yajl_tree_free(tree);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.size()));
}
BENCHMARK(BM_YajlTreeParse)->Unit(benchmark::kMicrosecond);

}  // namespace

int measureYajlTreeParse(const std::string& doc) {
    return yajlTreeParse(doc);
}

int yajlTreeParse(const std::string& doc) {
    char error[128];
    yajl_val tree = yajl_tree_parse(doc.c_str(), error, sizeof error);
    if (tree == nullptr) {
        return 1;
    }
    yajl_tree_free(tree);
    return 0;
}
