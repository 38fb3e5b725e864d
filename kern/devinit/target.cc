#include "kern/devinit/target.h"

#include <sys/stat.h>

#include "kern/device/devicespace.h"
#include "kern/device/settings.h"
#include "kern/devinit/runstate.h"

bool is_device(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) devinit_fail("Cannot stat");
  return S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode);
}

bool has_space(const std::string& path, std::uint64_t need) {
  if (path.empty()) devinit_fail("Must have file or device name");
  if (readVerify != 0) return true;
  const Place place = look_at(path);
  switch (place.trouble) {
    case Place::Trouble::NO_STATUS:
      devinit_fail("Cannot stat");
    case Place::Trouble::UNUSABLE_KIND:
      devinit_fail("File must be regular file or raw device");
    case Place::Trouble::NO_SPACE:
      devinit_fail("statvfs", place.error);
    case Place::Trouble::NONE:
      break;
  }
  return place.space + place.held >= need;
}
