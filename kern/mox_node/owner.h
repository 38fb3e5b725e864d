// The user that objects shall belong to.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace moxnode {

struct Owner {
  uid_t uid;
  std::optional<gid_t> gid;  // the user's group; nothing: a number that no account has
};

// By name, or by number. Throws Failure for an unknown name, or when it cannot be looked up.
Owner find_owner(const std::string& user);

// Throws Failure when this process may not give objects to the owner. The kernel lets every creator
// give its objects away; but they would stay under the creator's control, so that only root may do
// this for other users.
void refuse_foreign_owner(const Owner& owner);

}  // namespace moxnode
