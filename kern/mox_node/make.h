// Makes missing objects: all of them, or none. Nothing is taken over; each object is made by
// exclusive creation and stands in the undo log of the resource manager before anything else
// happens.
#pragma once

#include <optional>
#include <string>

#include "kern/mox_node/owner.h"
#include "kern/mox_node/report.h"
#include "kern/mox_res_mgr/ipc_res.h"
#include "kern/mox_res_mgr/undo.h"

namespace moxnode {

class Maker {
 public:
  explicit Maker(std::optional<Owner> owner) : owner_(owner) {}
  Maker(const Maker&) = delete;
  Maker& operator=(const Maker&) = delete;
  // Undoes what was made, unless it was kept; what cannot be undone is told on standard error.
  ~Maker();

  // Makes the absent objects of the node. Throws Failure; dies of a signal that was held, when
  // everything is undone.
  void make_missing(const NodeReport& node);

  // Undoes everything and dies if a signal has arrived.
  void checkpoint();

  void keep() { log_.clear(); }

 private:
  void make_segment(resmgr::ipc_res& node, const resmgr::buffer& buffer, const std::string& what);
  void make_set(resmgr::ipc_res& node, const std::string& what);
  void hand_over(int os_error, const std::string& what) const;

  std::optional<Owner> owner_;
  resmgr::undo_log log_;
};

}  // namespace moxnode
