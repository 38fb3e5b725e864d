#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <cerrno>
#include <chrono>
#include <cstdio>

#include "common/interrupt.h"
#include "kern/mox_node/failure.h"
#include "kern/mox_node/steps.h"
#include "kern/mox_node/turn.h"
#include "kern/mox_node/verbs.h"
#include "kern/mox_node/verdict.h"
#include "kern/mox_res_mgr/ipc_hints.h"

namespace moxnode {

namespace {

constexpr int between_looks = 200;  // milliseconds

// By the identifier that was looked at: what stands on the key by now may be somebody else's. 0, or
// the errno.
int remove(const ObjectReport& object) {
  const int id = object.look.object.id;
  const int result =
      object.kind() == Kind::SEGMENT ? shmctl(id, IPC_RMID, nullptr) : semctl(id, 0, IPC_RMID);
  return result == 0 ? 0 : errno;
}

void note_attached(const ObjectReport& object, std::uint64_t& bytes) {
  if (object.kind() != Kind::SEGMENT || object.look.object.attached == 0) return;
  bytes += object.look.object.size;
  resmgr::hint_at_attached_segment(object.key, object.look.object.id);
}

void look_again(const Task& task, Report& report) {
  const State before = report.before;
  look(task, report);
  report.before = before;
}

[[noreturn]] void end_by(int signal, const Task& task, Report& report) {
  look_again(task, report);
  const std::string left = list_other_than(State::ABSENT, report.nodes);
  (void)std::fprintf(stderr, "Error: interrupted by signal %d, left: %s\n", signal,
                     left.empty() ? "nothing" : left.c_str());
  dieOfSignal(signal);
}

ExitStatus remove_all(const Task& task, Report& report) {
  std::string failures;
  std::uint64_t attached_bytes = 0;
  for_each_wanted(report.nodes, [&](const NodeReport& node, const ObjectReport& object) {
    if (const int signal = pendingInterrupt(); signal != 0) end_by(signal, task, report);
    if (object.state != State::PRESENT) return;
    const int error = remove(object);
    if (error == EINVAL || error == EIDRM) return;  // somebody else has removed it
    if (error != 0) {
      failures += Failure("removing " + full_name(node, object), error).what() + std::string("; ");
    } else {
      report.changed = true;
      note_attached(object, attached_bytes);
    }
  });
  if (attached_bytes > 0) {
    (void)std::fprintf(stderr,
                       "removed while attached: %llu bytes stay in memory until the last process "
                       "detaches, beside whatever is made meanwhile\n",
                       static_cast<unsigned long long>(attached_bytes));
  }
  look_again(task, report);
  if (const int signal = pendingInterrupt(); signal != 0) end_by(signal, task, report);
  if (report.state == State::ABSENT) return DONE;
  throw Failure(failures + "left: " + list_other_than(State::ABSENT, report.nodes));
}

}  // namespace

ExitStatus down(const Task& task, Report& report) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::seconds(task.options.wait);
  for (;;) {
    {
      const Turn turn;
      const bool is_last = Clock::now() >= end;
      look(task, report);
      const ExitStatus refusal = decide_removal(report.nodes, is_last && task.options.force);
      if (refusal == DONE) return remove_all(task, report);
      if (refusal != IN_USE || is_last) return refusal;
    }
    pause_milliseconds(between_looks);
  }
}

}  // namespace moxnode
