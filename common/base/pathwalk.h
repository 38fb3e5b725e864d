// Follows a path one component at a time, each relative to the open folder before it, so that
// nothing can be exchanged between a check and its use: for files that root creates, empties or
// removes in folders where others may write.
//   const PathEnd end = walkPath(path, trustedLink);
//   if (end.folder) fd = openat(end.folder.get(), end.name.c_str(), O_NOFOLLOW | ...);
#pragma once

#include <sys/stat.h>

#include <string>

#include "common/base/descriptor.h"

constexpr int max_links = 40;  // in one path, as many as the kernel follows

struct PathEnd {
  Descriptor folder{};  // opened with O_PATH; none with errno: ELOOP for a link that is refused
  std::string name;     // the last component in that folder: missing, or no link that is followed
};

enum class LinkIs { FOLLOWED, REFUSED, THE_END };

// What a link, found in the folder, is.
using LinkRule = LinkIs (*)(const struct stat& folder, const struct stat& link);

// Followed when the folder belongs to root or the caller, and nobody else can write to it.
LinkIs linkInSafeFolder(const struct stat& folder, const struct stat& link);
// Or when the link itself belongs to root or the caller.
LinkIs trustedLink(const struct stat& folder, const struct stat& link);

// Whether root or the caller owns it.
bool belongsToUs(const struct stat& status);

PathEnd walkPath(const std::string& path, LinkRule rule);

// Whether the file that was opened in the folder may be written to: false, with errno EACCES, where
// somebody else can have put it.
bool mayBeTaken(int folder, int fd);
