// mox_res_mgr: creates, checks and deletes the operating-system resources of database nodes.
#include <cstdio>
#include <new>

#include "common/base/printable.h"
#include "common/buildinfo.h"
#include "common/releaseinfo.h"
#include "common/scanarg.h"
#include "common/stdstreams.h"
#include "kern/mox_res_mgr/command_file.h"
#include "kern/mox_res_mgr/commands.h"
#include "kern/mox_res_mgr/report.h"
#include "kern/mox_res_mgr/syntax_report.h"
#include "kern/mox_res_mgr/usage.h"

namespace {

enum exit_status { done = 0, failed = 1 };

constexpr int program_number = 38;
char accepted_options[] = "hvVf:";

exit_status reported() {
  return resmgr::output_written() ? done : failed;
}

exit_status run_file(const char* name) {
  resmgr::command_file file;
  if (!file.read(name)) return failed;
  try {
    resmgr::execute(static_cast<int>(file.words().size()), file.words().data());
  } catch (const resmgr::syntax_error& mistake) {
    resmgr::explain(mistake, printable(name) + ", " + file.place(mistake.token_start));
    resmgr::crash(mistake);
  }
  return done;
}

exit_status run_words(ScanArg& arguments) {
  if (arguments.refusedOperands > 0) {
    resmgr::say("Error: too many words for a command line, put the command into a file (-f)\n");
    return failed;
  }
  try {
    resmgr::execute(arguments.operandCount, arguments.operands);
  } catch (const resmgr::syntax_error& mistake) {
    resmgr::explain(mistake, "");
    resmgr::crash(mistake);
  }
  return done;
}

exit_status run(int argc, char** argv) {
  resmgr::prog_name = argv[0];
  ScanArg arguments;
  arguments.parse(argc, argv, accepted_options);
  if (arguments.versionFlag != 0) {
    printVersionInfo(stdout, program_number);
    if (argc == 2) return reported();
  }
  if (arguments.fullVersionFlag != 0) {
    printLinkInfo(stdout, program_number, build_link_time, build_link_command);
    if (argc == 2) return reported();
  }
  if (arguments.helpFlag != 0) {
    resmgr::usage();
    arguments.usage(accepted_options);
    return reported();
  }
  return arguments.inputFile != nullptr ? run_file(arguments.inputFile) : run_words(arguments);
}

}  // namespace

int main(int argc, char** argv) {
  openStandardStreams();
  // The reader of a pipe gets each line at once, and none is lost when the process is killed.
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  try {
    return run(argc, argv);
  } catch (const std::bad_alloc&) {
    resmgr::say("Error: out of memory\n");
    resmgr::crash();
  }
}
