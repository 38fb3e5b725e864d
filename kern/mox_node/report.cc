#include "kern/mox_node/report.h"

namespace moxnode {

std::string octal(unsigned mode) {
  const auto digit = [mode](unsigned place) {
    return static_cast<char>('0' + (mode >> (3 * place) & 7));
  };
  return {'0', digit(2), digit(1), digit(0)};
}

std::string full_name(const NodeReport& node, const ObjectReport& object) {
  return "node-" + std::to_string(node.number) + ": " + object.name() + " (key " +
         std::to_string(object.key) + ")";
}

std::string list_other_than(State state, const std::vector<NodeReport>& nodes) {
  std::string text;
  for_each_wanted(nodes, [&](const NodeReport& node, const ObjectReport& object) {
    if (object.state == state) return;
    if (!text.empty()) text += "; ";
    text += full_name(node, object) + " is " + name_of(object.state);
  });
  return text;
}

}  // namespace moxnode
