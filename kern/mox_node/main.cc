// mox_node: asks what stands of database nodes on this host, and makes it so, repeatably.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>

#include "common/interrupt.h"
#include "common/logger.h"
#include "common/logtrouble.h"
#include "common/releaseinfo.h"
#include "common/stdstreams.h"
#include "kern/device/settings.h"
#include "kern/mox_node/failure.h"
#include "kern/mox_node/json.h"
#include "kern/mox_node/output.h"
#include "kern/mox_node/prometheus.h"
#include "kern/mox_node/text.h"
#include "kern/mox_node/verbs.h"

namespace {

using namespace moxnode;

void tell(const char* error) {
  (void)std::fprintf(stderr, "Error: %s\n", error);
}

Lines rendered(const Report& report, const Options& options, const Output& output) {
  switch (options.format) {
    case Format::JSON:
      return to_json(report);
    case Format::PROMETHEUS:
      return to_prometheus(report, std::time(nullptr));
    case Format::TEXT:
      break;
  }
  if (options.all) {
    std::vector<std::string> warnings;
    Lines commands = to_commands(report, warnings);
    for (const std::string& warning : warnings) tell(warning.c_str());
    return commands;
  }
  return to_text(report, {options.verbose, options.output_file.empty() && output.is_coloured()});
}

ExitStatus run_verb(const Task& task, Report& report) {
  switch (task.options.verb) {
    case Verb::STATUS:
      return status(task, report);
    case Verb::PLAN:
      return plan(task, report);
    case Verb::UP:
      return up(task, report);
    default:
      return down(task, report);
  }
}

// An interrupt must not come between two steps of a verb that changes things.
void hold_interrupts(Verb verb) {
  if (verb != Verb::UP && verb != Verb::DOWN) return;
  if (const int error = holdInterrupts(); error != 0) throw Failure("holding signals", error);
}

ExitStatus run(const Options& options, Output& output) {
  if (!options.error.empty()) throw Failure(options.error + "; mox_node --help tells more");
  if (options.help || options.version) {
    output.write(options.help ? usage_text : "mox_node " + programVersion() + " " + buildTag + "\n",
                 "");
    return DONE;
  }
  hold_interrupts(options.verb);
  Task task{options, {}, std::nullopt};
  if (!options.all) task.nodes = read_description(options);
  if (!options.user.empty()) task.owner = find_owner(options.user);
  Report report;
  report.verb = options.verb;
  const ExitStatus status = run_verb(task, report);
  output.write(rendered(report, options, output).text(), options.output_file);
  return status;
}

ExitStatus fail(const char* error, const Options& options, Output& output) {
  tell(error);
  if (options.format != Format::JSON) return TROUBLE;
  try {
    output.write(error_to_json(options.verb, error).text(), options.output_file);
  } catch (const Failure& second) {
    // The first error is told; an output that cannot be written is often the same one.
    if (std::strcmp(second.what(), error) != 0) tell(second.what());
  }
  return TROUBLE;
}

ExitStatus guarded_run(const Options& options, Output& output) {
  try {
    return run(options, output);
  } catch (const Failure& failure) {
    return fail(failure.what(), options, output);
  } catch (const std::bad_alloc&) {
    return fail("out of memory", options, output);
  }
}

}  // namespace

int main(int argc, char** argv) {
  openStandardStreams();
  logmsgPrefix = "NODE";
  readVerify = 1;  // devices are opened for reading only
  try {
    // What the parts of the resource manager report is told as the error of the run; at this level
    // they log it a second time.
    logmsg.detach(LEVEL_INF);
    Output output;
    return guarded_run(scan_options(argc, argv), output);
  } catch (const std::bad_alloc&) {
    tell("out of memory");
  } catch (const std::exception& error) {
    tell(error.what());
  }
  return TROUBLE;
}
