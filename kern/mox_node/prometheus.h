// The report in the text format of Prometheus, for the textfile collector.
#pragma once

#include <cstdint>

#include "kern/mox_node/lines.h"
#include "kern/mox_node/report.h"

namespace moxnode {

// `now` in seconds since 1970. What is unknown has no sample.
Lines to_prometheus(const Report& report, std::int64_t now);

}  // namespace moxnode
