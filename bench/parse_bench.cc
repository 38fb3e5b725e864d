// The time to parse node specifications: the figure per node may grow with the logarithm of their
// number.
#include <benchmark/benchmark.h>

#include <string>

#include "kern/mox_res_mgr/lexer.h"
#include "kern/mox_res_mgr/parser.h"

namespace {

void parse_nodes(benchmark::State& state) {
  const auto nodes = state.range(0);
  std::string text;
  for (std::int64_t node = 0; node < nodes; ++node) {
    text += " node-" + std::to_string(node) + ": ipcbase=" + std::to_string(node * 10 + 1) +
            ", databuf=1048576, tlogbuf=65536, evbuf=4096";
  }
  for (auto _ : state) {
    resmgr::start_lexer(text);
    benchmark::DoNotOptimize(resmgr::create_operands());
  }
  state.counters["per_node"] =
      benchmark::Counter(static_cast<double>(nodes), benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
}
BENCHMARK(parse_nodes)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace
