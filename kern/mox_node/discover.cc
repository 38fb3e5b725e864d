#include "kern/mox_node/discover.h"

#include <algorithm>
#include <cerrno>
#include <unordered_map>

#include "kern/mox_node/failure.h"
#include "kern/mox_node/verdict.h"
#include "kern/mox_res_mgr/ipc_res.h"

namespace moxnode {

namespace {

using ByKey = std::unordered_map<int, Object>;

ByKey objects_of(Kind kind, const char* what) {
  const auto objects = Host::all(kind);
  if (!objects) throw Failure(std::string("listing the ") + what + " of the host", errno);
  ByKey result;
  result.reserve(objects->size());
  for (const Object& object : *objects) result.emplace(object.key, object);
  return result;
}

// The buffer that every node has, whatever its command says.
constexpr const resmgr::buffer& dictionary = *std::ranges::find_if(
    resmgr::buffers, [](const resmgr::buffer& row) { return row.initial != 0; });

int base_of_dictionary(int key) {
  return static_cast<int>(static_cast<unsigned>(key) - dictionary.offset);
}

resmgr::ipc_res keys_from(int base) {
  resmgr::ipc_res keys;
  keys.ipcbase = base;
  return keys;
}

class Finder {
 public:
  explicit Finder(std::optional<uid_t> owner)
      : owner_(owner),
        segments_(objects_of(Kind::SEGMENT, "shared memory segments")),
        sets_(objects_of(Kind::SET, "semaphore sets")) {}

  std::vector<NodeReport> find() const {
    std::vector<NodeReport> nodes;
    for (const int base : bases()) {
      nodes.push_back(node(static_cast<std::uint32_t>(nodes.size() + 1), base));
    }
    return nodes;
  }

 private:
  bool is_ours(const Object& object) const { return !owner_ || object.uid == *owner_; }

  bool has_set(int base) const {
    const auto set = sets_.find(keys_from(base).key(resmgr::semaphores_offset));
    return set != sets_.end() && is_ours(set->second) &&
           set->second.size == static_cast<unsigned>(resmgr::semaphores_per_node);
  }

  // Ascending; of two that overlap, the lower.
  std::vector<int> bases() const {
    std::vector<int> candidates;
    for (const auto& [key, segment] : segments_) {
      const bool is_dictionary = key > static_cast<int>(dictionary.offset) &&
                                 segment.size == dictionary.initial && is_ours(segment);
      if (is_dictionary && has_set(base_of_dictionary(key))) {
        candidates.push_back(base_of_dictionary(key));
      }
    }
    std::ranges::sort(candidates);
    std::vector<int> bases;
    for (const int base : candidates) {
      const bool overlaps =
          !bases.empty() && base - bases.back() < static_cast<int>(resmgr::keys_per_node);
      if (!overlaps) bases.push_back(base);
    }
    return bases;
  }

  NodeReport node(std::uint32_t number, int base) const {
    const resmgr::ipc_res keys = keys_from(base);
    NodeReport node;
    node.number = number;
    node.ipcbase = base;
    for (const resmgr::buffer& buffer : resmgr::buffers) {
      const auto found = segments_.find(keys.key(buffer.offset));
      if (found == segments_.end()) continue;
      const Object& segment = found->second;
      const bool ours = is_ours(segment);
      (ours ? node.segments : node.extra)
          .push_back({&buffer,
                      segment.key,
                      State::UNKNOWN,
                      ours ? segment.size : 0,
                      {Found::THERE, 0, segment}});
    }
    const Object& set = sets_.at(keys.key(resmgr::semaphores_offset));
    node.set = {nullptr, set.key, State::UNKNOWN, set.size, {Found::THERE, 0, set}};
    judge_node(node, owner_);
    return node;
  }

  std::optional<uid_t> owner_;
  ByKey segments_;
  ByKey sets_;
};

}  // namespace

std::vector<NodeReport> find_nodes(std::optional<uid_t> owner) {
  return Finder(owner).find();
}

}  // namespace moxnode
