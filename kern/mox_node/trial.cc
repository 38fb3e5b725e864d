#include "kern/mox_node/trial.h"

#include <sys/stat.h>

#include <set>
#include <tuple>

#include "kern/device/devicepath.h"
#include "kern/device/devicespace.h"
#include "kern/mox_node/blockuse.h"
#include "kern/mox_res_mgr/phys_device.h"

namespace moxnode {

namespace {

// Where a file stands or would stand. What is there has an inode; what is not has a name in a
// folder that has one.
using Identity = std::tuple<dev_t, ino_t, std::string>;

std::string name_in_folder(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// False when it cannot be told.
bool identify(const DeviceReport& device, Identity& identity) {
  if (device.facts.state == DeviceState::UNKNOWN) return false;
  if (device.facts.state != DeviceState::ABSENT) {
    identity = {device.facts.device, device.facts.inode, ""};
    return true;
  }
  int error = 0;
  const std::string target = resolve_symlink(device.path, error);
  struct stat folder {};
  if (error != 0 || stat(get_dirname(target).c_str(), &folder) != 0) return false;
  identity = {folder.st_dev, folder.st_ino, name_in_folder(target)};
  return true;
}

Check check_of(const DeviceFacts& facts) {
  if (facts.state == DeviceState::ABSENT) return Check::CREATE;
  if (facts.block_device != 0) return is_held(facts.block_device) ? Check::BUSY : Check::NONE;
  return facts.bytes.value_or(0) > 0 ? Check::EMPTY : Check::NONE;
}

class Accounts {
 public:
  explicit Accounts(bool refused) : refused_(refused) {}

  void add(const DeviceReport& device) {
    if (device.path.empty() || device.megabytes < 0) return;
    const Place place = look_at(device.path);
    if (place.trouble == Place::Trouble::NO_STATUS) return;
    Account& account = of(place.device, device.path);
    const std::uint64_t need = refused_ ? 0 : need_of(device);
    account.report.needed += need;
    // The size of a device that cannot be read would come out as 0.
    const bool is_unread = place.exists && device.facts.state == DeviceState::UNKNOWN;
    if (place.trouble != Place::Trouble::NONE || is_unread) {
      account.known = false;
      return;
    }
    account.report.free = place.space;
    // An existing device takes the whole account of its physical device for itself.
    const bool is_taken = place.exists && account.physical.reserved != 0;
    if (is_taken || !account.physical.reserve(need, place.space)) account.fits = false;
  }

  std::vector<SpaceReport> take() {
    std::vector<SpaceReport> reports;
    for (Account& account : accounts_) {
      if (account.known || !account.fits) account.report.fits = account.fits;
      reports.push_back(std::move(account.report));
    }
    return reports;
  }

 private:
  struct Account {
    resmgr::phys_device physical;
    SpaceReport report;
    bool fits = true;
    bool known = true;
  };

  static std::uint64_t need_of(const DeviceReport& device) {
    constexpr std::uint64_t megabyte = 1048576;
    return mox_phys_space(static_cast<std::uint64_t>(device.megabytes) * megabyte);
  }

  Account& of(std::uint32_t physical, const std::string& path) {
    for (Account& account : accounts_) {
      if (account.physical.device == physical) return account;
    }
    Account& account = accounts_.emplace_back();
    account.physical.device = physical;
    account.report.path = file_system_of(path);
    return account;
  }

  bool refused_;
  std::vector<Account> accounts_;
};

}  // namespace

void judge_checks(std::vector<NodeReport>& reports) {
  std::set<Identity> met;
  for (NodeReport& node : reports) {
    for (DeviceReport& device : node.devices) {
      Identity identity;
      const bool known = identify(device, identity);
      const bool twice = known && !met.insert(identity).second;
      device.check = twice ? Check::TWICE : check_of(device.facts);
    }
  }
}

std::vector<SpaceReport> look_at_space(const std::vector<NodeReport>& reports, bool refused) {
  Accounts accounts(refused);
  for (const NodeReport& node : reports) {
    for (const DeviceReport& device : node.devices) accounts.add(device);
  }
  return accounts.take();
}

}  // namespace moxnode
