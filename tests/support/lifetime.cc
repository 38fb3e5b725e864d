// A program that uses the runtime before main begins and after it has ended, for lifetime_test.
#include <cstdio>

#include "common/logger.h"
#include "common/variables.h"
#include "errutils/statuss.h"

namespace {

void use_the_runtime(const char* when) {
  Status status;
  VarSet::instance().set("acktimeout", 1, status);
  logLine(LEVEL_WRN, std::string(when) + ": " + status.getText());
}

struct BeforeAndAfter {
  BeforeAndAfter() { use_the_runtime("before main"); }
  ~BeforeAndAfter() { use_the_runtime("after main"); }
};

const BeforeAndAfter instance;

}  // namespace

int main() {
  // Made after the static object, so destroyed before it.
  use_the_runtime("main");
  logmsg.setTimeStamp(0, "");
}
