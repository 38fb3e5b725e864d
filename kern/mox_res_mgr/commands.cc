#include "kern/mox_res_mgr/commands.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "common/interrupt.h"
#include "kern/mox_res_mgr/ipc_hints.h"
#include "kern/mox_res_mgr/lexer.h"
#include "kern/mox_res_mgr/parser.h"
#include "kern/mox_res_mgr/report.h"

namespace resmgr {

namespace {

enum class outcome { made, search_failed, create_failed, interrupted };

bool search_option() {
  if (lookahead != T_OPTION) return false;
  match(T_OPTION);
  match(T_SEARCH);
  return true;
}

struct request {
  op_list ops;
  bool searching;
};

// The text of a command that makes resources, from its first word to its end.
request read_request(token command, op_list (*parse)()) {
  initStatus_s(&stat);
  match(command);
  const bool searching = search_option();
  request result{parse(), searching};
  if (searching) search_check(result.ops);
  return result;
}

bool interrupted() {
  const int signal = pendingInterrupt();
  if (signal != 0) say("Error: interrupted by signal %d\n", signal);
  return signal != 0;
}

outcome make(op& node, bool searching, undo_log& log) {
  if (searching && !node.search()) {
    say("Error: search failed\n");
    return outcome::search_failed;
  }
  node.create(log);
  if (stat.failed()) {
    emit_korv_error();
    return outcome::create_failed;
  }
  return outcome::made;
}

// Makes one node after the other until one fails. An interrupt takes effect when the node in hand
// is done; one that comes behind the last node's check finds the command complete.
outcome make_all(request& wanted, undo_log& log) {
  if (const int os_error = holdInterrupts(); os_error != 0) {
    say("Error: signals cannot be held: %s\n", std::strerror(os_error));
    return outcome::create_failed;
  }
  try {
    for (op& node : wanted.ops) {
      const outcome result = make(node, wanted.searching, log);
      if (interrupted()) return outcome::interrupted;
      if (result != outcome::made) return result;
    }
  } catch (const std::bad_alloc&) {
    say("Error: out of memory\n");
    return outcome::create_failed;
  }
  return outcome::made;
}

// What was made is kept or undone as a whole, so an interrupt that was reported ends the process
// only now.
void end_if_interrupted(outcome result) {
  if (result == outcome::interrupted) dieOfSignal(pendingInterrupt());
}

}  // namespace

void create_cmd() {
  request wanted = read_request(T_CREATE, create_operands);
  warn_of_forced_removal();
  undo_log log;
  const outcome result = make_all(wanted, log);
  if (result == outcome::made) return;
  say("Error: create failed, removing %zu elements\n", log.size());
  replay(log);
  end_if_interrupted(result);
  crash();
}

void check_cmd() {
  request wanted = read_request(T_CHECK, operands);
  undo_log log;
  const outcome result = make_all(wanted, log);
  if (result == outcome::create_failed) say("Error: check failed\n");
  replay(log);
  end_if_interrupted(result);
}

void delete_cmd() {
  match(T_DELETE);
  op_list ops = delete_operands();
  for (op& node : ops) node.del();
}

void search_check(const op_list& ops) {
  std::string message;
  for (const op& node : ops) {
    if (node.search_ok(message)) continue;
    say("Error: %s\n", message.c_str());
    crash();
  }
}

void execute(int count, char** words) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    text += ' ';
    text += words[i];
  }
  start_lexer(std::move(text));
  switch (lookahead) {
    case T_CREATE:
      create_cmd();
      // What was made stays made, whoever reads the report of it.
      output_written();
      return;
    case T_CHECK:
      check_cmd();
      break;
    case T_DELETE:
      delete_cmd();
      break;
    default:
      error();
  }
  if (!output_written()) std::exit(1);
}

}  // namespace resmgr
