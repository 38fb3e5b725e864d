// The report as one line of JSON: every key always there, null for what is not known or not there.
#pragma once

#include <string>

#include "kern/mox_node/lines.h"
#include "kern/mox_node/report.h"

namespace moxnode {

Lines to_json(const Report& report);

// For an end without a report; `verb` may be NONE.
Lines error_to_json(Verb verb, const std::string& error);

}  // namespace moxnode
