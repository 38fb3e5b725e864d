// Records that carry a number of their own, kept in the order in which the numbers first appeared:
// the nodes of a command, the devices of a node. Finding one takes a time that grows with the
// logarithm of their number, whatever the numbers: a command could make any known hash collide.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace resmgr {

template <class Record>
class numbered {
 public:
  // The record of that number; a new Record(number) at the end when there is none yet.
  Record& of(std::uint32_t number) {
    const auto [position, is_new] = positions_.try_emplace(number, records_.size());
    if (is_new) records_.emplace_back(number);
    return records_[position->second];
  }

  auto begin() { return records_.begin(); }
  auto end() { return records_.end(); }
  auto begin() const { return records_.begin(); }
  auto end() const { return records_.end(); }
  bool empty() const { return records_.empty(); }
  std::size_t size() const { return records_.size(); }

 private:
  std::vector<Record> records_;
  std::map<std::uint32_t, std::size_t> positions_;
};

}  // namespace resmgr
