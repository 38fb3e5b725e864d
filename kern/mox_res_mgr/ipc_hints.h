// One more line in the log where the kernel's own refusal does not tell an operator what to change:
// the limit that was met, or the object that is in the way. Nothing here fails or prints on
// standard output.
#pragma once

#include <cstdint>
#include <string>

namespace resmgr {

// After a creation that failed with one of the errors of a kernel limit; other errors need no hint.
void hint_at_segment_limit(std::uint32_t size, int os_error);
void hint_at_semaphore_limit(int os_error);

void hint_at_segment_in_the_way(std::int32_t key);
void hint_at_set_in_the_way(std::int32_t key);
void hint_at_adopted_set(std::int32_t key, int semid);

// For a segment that was removed while other processes have it attached: it lives on, without a
// key, until the last of them detaches. `shmid` may be -1.
void hint_at_attached_segment(std::int32_t key, int shmid);

// The object with its identifier, owner and size; without owner and size when the kernel does not
// tell them.
std::string describe_segment(std::int32_t key, int shmid);
std::string describe_set(std::int32_t key, int semid);

// For an object on the keys that stand for no base key at all: `what` describes it.
void hint_at_removal_without_base(const std::string& what);

// Warns when the kernel destroys unattached segments as soon as their creator ends.
void warn_of_forced_removal();

}  // namespace resmgr
