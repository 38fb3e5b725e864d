#include "kern/mox_node/owner.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "common/base/kernelfile.h"
#include "common/base/number.h"
#include "common/base/printable.h"
#include "kern/mox_node/failure.h"

namespace moxnode {

namespace {

// getpwnam and getpwuid set errno only when the account could not be looked up.
template <class Ask, class Key>
const passwd* account(Ask ask, Key key, const std::string& user) {
  errno = 0;
  const passwd* const entry = ask(key);
  const bool is_no_error = errno == 0 || errno == ENOENT || errno == ESRCH;
  if (entry == nullptr && !is_no_error) throw Failure("looking up user " + printable(user), errno);
  return entry;
}

// Whether the name space of users that this process lives in knows the identifier. A file that
// cannot be read says nothing; then the kernel refuses when it comes to it.
bool is_mapped(const char* map, std::uint64_t id) {
  const std::optional<std::string> text = readKernelFile(map);
  if (!text || text->empty()) return true;
  for (std::string_view rest = *text; !rest.empty();) {
    std::string_view line = takeLine(rest);
    const auto first = takeNumber<std::uint64_t>(line);
    takeWord(line);  // the first one outside
    const auto count = takeNumber<std::uint64_t>(line);
    if (!first || !count || (id >= *first && id - *first < *count)) return true;
  }
  return false;
}

}  // namespace

Owner find_owner(const std::string& user) {
  if (const passwd* entry = account(getpwnam, user.c_str(), user)) {
    return {entry->pw_uid, entry->pw_gid};
  }
  const auto number = readNumber(user.c_str(), 10);
  const bool digits = user.find_first_not_of("0123456789") == std::string::npos;
  // The largest number stands for "no user".
  constexpr uid_t none = std::numeric_limits<uid_t>::max();
  if (!digits || !number || !number->isWithin(0, none - 1)) {
    throw Failure("unknown user " + printable(user));
  }
  const auto uid = static_cast<uid_t>(number->value);
  if (const passwd* entry = account(getpwuid, uid, user)) return {uid, entry->pw_gid};
  return {uid, std::nullopt};
}

void refuse_foreign_owner(const Owner& owner) {
  const uid_t self = geteuid();
  const std::string name = "user " + std::to_string(owner.uid);
  if (self != 0 && self != owner.uid) {
    throw Failure("only root may give objects to " + name);
  }
  if (!is_mapped("/proc/self/uid_map", owner.uid) ||
      (owner.gid && !is_mapped("/proc/self/gid_map", *owner.gid))) {
    throw Failure(name + " does not exist in this user namespace");
  }
}

}  // namespace moxnode
