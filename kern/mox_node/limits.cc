#include "kern/mox_node/limits.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "common/base/kernelfile.h"
#include "kern/mox_node/sysv.h"

namespace moxnode {

namespace {

using Number = std::optional<std::uint64_t>;

struct Need {
  std::uint64_t segments = 0;
  std::uint64_t largest = 0;  // bytes
  std::uint64_t pages = 0;
  std::uint64_t sets = 0;
  std::uint64_t largest_set = 0;  // semaphores
  std::uint64_t semaphores = 0;
};

std::uint64_t page_size() {
  static const auto size = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  return size;
}

std::uint64_t pages_of(std::uint64_t bytes) {
  return bytes / page_size() + (bytes % page_size() != 0 ? 1 : 0);
}

Need need_of(const std::vector<NodeReport>& nodes) {
  Need need;
  for (const NodeReport& node : nodes) {
    if (node.step != Step::CREATE && node.step != Step::REPAIR) continue;
    for (const ObjectReport& segment : node.segments) {
      if (segment.state != State::ABSENT) continue;
      ++need.segments;
      need.largest = std::max(need.largest, segment.wanted);
      need.pages += pages_of(segment.wanted);
    }
    if (node.set.state != State::ABSENT) continue;
    ++need.sets;
    need.largest_set = std::max(need.largest_set, node.set.wanted);
    need.semaphores += node.set.wanted;
  }
  return need;
}

// The n-th number of a setting.
Number setting(const std::string& name, int n = 1) {
  const std::optional<std::string> text = kernelSetting(name);
  if (!text) return std::nullopt;
  std::string_view rest = *text;
  while (--n > 0) takeWord(rest);
  return takeNumber<std::uint64_t>(rest);
}

Number memory_figure_in_bytes(std::string_view name) {
  const Number kilobytes = memoryFigure(name);
  if (!kilobytes) return std::nullopt;
  return *kilobytes * 1024;
}

struct Use {
  Number objects;
  Number amount;  // pages or semaphores
};

Use in_use(Kind kind) {
  TableUse use{};
  if (table_use(kind, use)) return {use.objects, use.amount};
  const auto table = proc_table(kind);
  if (!table) return {};
  std::uint64_t amount = 0;
  for (const Object& object : *table) {
    amount += kind == Kind::SEGMENT ? pages_of(object.size) : object.size;
  }
  return {table->size(), amount};
}

LimitReport report(const char* name, Number limit, Number used, std::uint64_t needed,
                   bool has_use = true) {
  LimitReport result{name, limit, used, needed, std::nullopt};
  if (limit && (used || !has_use)) {
    const std::uint64_t taken = used.value_or(0);
    result.fits = needed == 0 || (taken <= *limit && needed <= *limit - taken);
  }
  // No host has that much; and a reader of JSON could not tell it from its neighbours.
  constexpr std::uint64_t no_limit = std::uint64_t{1} << 53;
  if (limit && *limit >= no_limit) result.limit = std::nullopt;
  return result;
}

}  // namespace

std::optional<bool> segments_vanish() {
  const Number forced = setting("kernel/shm_rmid_forced");
  if (!forced) return std::nullopt;
  return *forced != 0;
}

std::vector<LimitReport> look_at_limits(const std::vector<NodeReport>& nodes) {
  const Need need = need_of(nodes);
  const Use segments = in_use(Kind::SEGMENT);
  const Use sets = in_use(Kind::SET);
  std::vector<LimitReport> limits = {
      report("shmmni", setting("kernel/shmmni"), segments.objects, need.segments),
      report("shmmax", setting("kernel/shmmax"), std::nullopt, need.largest, false),
      report("shmall", setting("kernel/shmall"), segments.amount, need.pages),
      report("semmni", setting("kernel/sem", 4), sets.objects, need.sets),
      report("semmsl", setting("kernel/sem", 1), std::nullopt, need.largest_set, false),
      report("semmns", setting("kernel/sem", 2), sets.amount, need.semaphores),
  };
  constexpr std::uint64_t never_overcommit = 2;
  const Number overcommit = setting("vm/overcommit_memory");
  if (!overcommit || *overcommit == never_overcommit) {
    const Number limit = overcommit ? memory_figure_in_bytes("CommitLimit") : std::nullopt;
    limits.push_back(report("CommitLimit", limit, memory_figure_in_bytes("Committed_AS"),
                            need.pages * page_size()));
  }
  const std::optional<bool> vanish = segments_vanish();
  if (!vanish || *vanish) {
    limits.push_back(report("shm_rmid_forced", vanish ? Number(0) : std::nullopt, std::nullopt,
                            need.segments, false));
  }
  return limits;
}

std::optional<bool> all_fit(const std::vector<LimitReport>& limits) {
  std::optional<bool> result = true;
  for (const LimitReport& limit : limits) {
    if (limit.needed == 0) continue;
    if (!limit.fits) return std::nullopt;
    if (!*limit.fits) result = false;
  }
  return result;
}

}  // namespace moxnode
