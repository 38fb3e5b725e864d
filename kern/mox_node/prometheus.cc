#include "kern/mox_node/prometheus.h"

namespace moxnode {

namespace {

void metric(Lines& lines, const char* name, const char* help) {
  lines.add("# HELP ", name, ' ', help, "\n# TYPE ", name, " gauge\n");
}

struct Label {
  const char* name;  // null: none but those of the node
  const char* value;
};

void sample(Lines& lines, const char* name, const NodeReport& node, Label label,
            std::uint64_t value) {
  lines.add(name, "{node=\"", node.number, "\",ipcbase=\"", node.ipcbase, '"');
  if (label.name != nullptr) lines.add(',', label.name, "=\"", label.value, '"');
  lines.add("} ", value, '\n');
}

}  // namespace

Lines to_prometheus(const Report& report, std::int64_t now) {
  constexpr std::size_t bytes_per_node = 1200;
  Lines lines(report.nodes.size() * bytes_per_node);
  metric(lines, "mox_node_state", "Whether the resources of the node are in this state.");
  for (const NodeReport& node : report.nodes) {
    for (const State state : node_states) {
      sample(lines, "mox_node_state", node, {"state", name_of(state)}, node.state == state);
    }
  }
  metric(lines, "mox_node_attaches", "How often the segments of the node are attached.");
  for (const NodeReport& node : report.nodes) {
    if (node.attached) sample(lines, "mox_node_attaches", node, {}, *node.attached);
  }
  metric(lines, "mox_node_segment_bytes", "Size of a segment of the node, 0 when it is absent.");
  for (const NodeReport& node : report.nodes) {
    for (const ObjectReport& segment : node.segments) {
      if (segment.look.found == Found::UNKNOWN) continue;
      const bool there = segment.look.found == Found::THERE;
      sample(lines, "mox_node_segment_bytes", node, {"buffer", segment.name()},
             there ? segment.look.object.size : 0);
    }
  }
  metric(lines, "mox_node_probe_timestamp_seconds", "When the host was looked at.");
  lines.add("mox_node_probe_timestamp_seconds ", now, '\n');
  return lines;
}

}  // namespace moxnode
