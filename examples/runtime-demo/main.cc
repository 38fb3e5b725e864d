// Shows the runtime at work: standard options, a configuration file, variables and the log.
//   runtime_demo -c demo.conf -n 7 -D acktimeout=1000 hello world
#include <cstdio>
#include <cstdlib>
#include <string>

#include "mox/common/buildinfo.h"
#include "mox/common/logger.h"
#include "mox/common/releaseinfo.h"
#include "mox/common/scanarg.h"
#include "mox/common/scanconf.h"
#include "mox/common/stdstreams.h"
#include "mox/common/variables.h"

namespace {

constexpr int program_number = 7;
constexpr const char* options = "hvVc:C:d:n:D:";

// A status that failed ends the program with its text; the log gets the whole record.
void must(Status& status, const char* activity) {
  if (!status.failed()) return;
  std::fprintf(stderr, "%s\n", status.getText());
  status.report(activity);
  std::exit(EXIT_FAILURE);
}

// The second file goes on top of the first, definitions of the command line on top of both.
ConfigRecord configure(ScanArg& arguments) {
  ConfigRecord record;
  Status status;
  if (arguments.configFile != nullptr) {
    scanConf(arguments.configFile, record, status);
    must(status, "reading the configuration");
  }
  if (arguments.extraConfigFile != nullptr) {
    addConf(arguments.extraConfigFile, record, VarSet::instance(), status);
    must(status, "reading the second configuration");
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
    logLine(LEVEL_INF, std::string("operand ") + arguments.operands[i]);
  }
}

}  // namespace

int main(int argc, char** argv) {
  openStandardStreams();
  logmsgPrefix = "DEMO";
  describeProgram(program_number, "Runtime demonstration");
  ScanArg arguments;
  const int errors = arguments.parse(argc, argv, options);
  if (arguments.versionFlag != 0) printVersionInfo(stdout, program_number);
  if (arguments.fullVersionFlag != 0) {
    printLinkInfo(stdout, program_number, build_link_time, build_link_command);
  }
  if (errors != 0 || arguments.helpFlag != 0) {
    arguments.usage();
    return errors != 0 ? EXIT_FAILURE : EXIT_SUCCESS;
  }
  show(arguments, configure(arguments));
  return std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
