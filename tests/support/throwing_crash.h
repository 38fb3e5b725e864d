// Lets a test outlive the fatal end of a run: linked in front of the resource manager's own
// crash().
#pragma once

#include "kern/mox_res_mgr/report.h"

struct RunEnded {};
