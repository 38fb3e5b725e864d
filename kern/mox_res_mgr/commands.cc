#include "kern/mox_res_mgr/commands.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "common/base/number.h"
#include "common/interrupt.h"
#include "common/logger.h"
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

// Names the node of this very run that has the segment in the way.
void hint_at_own_node(const op_list& ops, const op& failed) {
  const auto key = readNumber(stat.params);
  for (const op& other : ops) {
    if (&other == &failed || !key) return;
    if (!other.ipc.wants(static_cast<std::int32_t>(key->value))) continue;
    logLine(LEVEL_WRN, "in the way: this run made that segment for node " +
                           std::to_string(other.node) + ", with ipcbase " +
                           std::to_string(other.ipc.ipcbase));
  }
}

// Searches a base and creates the node. When somebody else takes a key of that base in between, the
// node is undone and the search goes on, a bounded number of times.
outcome make(op& node, bool searching, undo_log& log) {
  constexpr int most_tries = 100;
  for (int tries = 1;; ++tries) {
    if (searching && !node.search()) return outcome::search_failed;
    const std::size_t before = log.size();
    node.create(log);
    if (!stat.failed()) return outcome::made;
    const bool taken = searching && stat.number == MOX_SHM_EXISTS;
    if (!taken || tries == most_tries || pendingInterrupt() != 0) return outcome::create_failed;
    replay(log, before);
    node.ipc.give_up_base();
  }
}

outcome make_or_report(op& node, const request& wanted, undo_log& log) {
  const outcome result = make(node, wanted.searching, log);
  if (result == outcome::search_failed) say("Error: search failed\n");
  if (result == outcome::create_failed) {
    if (stat.number == MOX_SHM_EXISTS) hint_at_own_node(wanted.ops, node);
    emit_korv_error();
  }
  return result;
}

// A set that was taken over may have been removed meanwhile by the rollback of the run that had
// made it.
outcome look_again(const undo_log& log) {
  const bool whole = std::ranges::all_of(log, [](const auto& entry) { return entry->stands(); });
  if (whole) return outcome::made;
  emit_korv_error();
  return outcome::create_failed;
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
      const outcome result = make_or_report(node, wanted, log);
      if (interrupted()) return outcome::interrupted;
      if (result != outcome::made) return result;
    }
    return look_again(log);
  } catch (const std::bad_alloc&) {
    say("Error: out of memory\n");
    return outcome::create_failed;
  }
}

// What was made stays made, whoever reads the report of it. A base that a search has found must not
// be lost with the report.
void report_what_was_made(const request& wanted) {
  if (output_written() || !wanted.searching) return;
  for (const op& node : wanted.ops) logLine(LEVEL_WRN, node.where());
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
  if (result == outcome::made) {
    report_what_was_made(wanted);
    return;
  }
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
  start_lexer(joined({words, static_cast<std::size_t>(count)}));
  switch (lookahead) {
    case T_CREATE:
      create_cmd();
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
