// Shows the runtime at work: standard options, a configuration file, variables and the log.
//   runtime_demo -c demo.conf -n 7 -D acktimeout=1000 hello world
#include <cstdio>
#include <cstdlib>

#include "common/buildinfo.h"
#include "common/logger.h"
#include "common/releaseinfo.h"
#include "common/scanarg.h"
#include "common/scanconf.h"
#include "common/variables.h"

namespace {

constexpr const char* options = "hvVc:d:n:D:";

// A status that failed ends the program with its text; the log gets the whole record.
void must(Status& status, const char* activity) {
  if (!status.failed()) return;
  std::fprintf(stderr, "%s\n", status.getText());
  status.report(activity);
  std::exit(EXIT_FAILURE);
}

// Definitions of the command line come last: they override the file.
ConfigRecord configure(ScanArg& arguments) {
  ConfigRecord record;
  Status status;
  if (arguments.configFile != nullptr) {
    scanConf(arguments.configFile, record, status);
    must(status, "reading the configuration");
  }
  arguments.setVariables(0, status);
  must(status, "setting the variables");
  return record;
}

void show(const ScanArg& arguments, const ConfigRecord& record) {
  std::printf("acktimeout = %d\n", VarSet::instance().get("acktimeout")->number());
  for (const ConfigRecord::Node& node : record.nodes) {
    std::printf("node %d at %s:%d\n", node.number, node.host.c_str(), node.port);
  }
  for (int i = 0; i < arguments.operandCount; ++i) {
    std::printf("operand %s\n", arguments.operands[i]);
    logmsg.start(LEVEL_INF, __FILE__, __LINE__);
    logmsg.txt("operand ");
    logmsg.txt(arguments.operands[i]);
    logmsg.chr('\n');
    logmsg.logg();
  }
}

}  // namespace

int main(int argc, char** argv) {
  logmsgPrefix = "DEMO";
  ScanArg arguments;
  const int errors = arguments.parse(argc, argv, options);
  if (arguments.versionFlag != 0) printVersionInfo(stdout, 0);
  if (arguments.fullVersionFlag != 0) {
    printLinkInfo(stdout, 0, build_link_time, build_link_command);
  }
  if (errors != 0 || arguments.helpFlag != 0) {
    arguments.usage();
    return errors != 0 ? EXIT_FAILURE : EXIT_SUCCESS;
  }
  show(arguments, configure(arguments));
  return std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
