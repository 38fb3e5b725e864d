#include "kern/mox_node/prometheus.h"

namespace moxnode {

namespace {

void metric(std::string& text, const char* name, const char* help) {
  text += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " gauge\n";
}

void sample(std::string& text, const char* name, const NodeReport& node, const std::string& label,
            std::uint64_t value) {
  text += std::string(name) + "{node=\"" + std::to_string(node.number) + "\",ipcbase=\"" +
          std::to_string(node.ipcbase) + "\"" + label + "} " + std::to_string(value) + "\n";
}

std::string label(const char* name, const char* value) {
  return std::string(",") + name + "=\"" + value + "\"";
}

}  // namespace

std::string to_prometheus(const Report& report, std::int64_t now) {
  std::string text;
  metric(text, "mox_node_state", "Whether the resources of the node are in this state.");
  for (const NodeReport& node : report.nodes) {
    for (const State state : node_states) {
      sample(text, "mox_node_state", node, label("state", name_of(state)), node.state == state);
    }
  }
  metric(text, "mox_node_attaches", "How often the segments of the node are attached.");
  for (const NodeReport& node : report.nodes) {
    if (node.attached) sample(text, "mox_node_attaches", node, "", *node.attached);
  }
  metric(text, "mox_node_segment_bytes", "Size of a segment of the node, 0 when it is absent.");
  for (const NodeReport& node : report.nodes) {
    for (const ObjectReport& segment : node.segments) {
      if (segment.look.found == Found::UNKNOWN) continue;
      const bool there = segment.look.found == Found::THERE;
      sample(text, "mox_node_segment_bytes", node, label("buffer", segment.name()),
             there ? segment.look.object.size : 0);
    }
  }
  metric(text, "mox_node_probe_timestamp_seconds", "When the host was looked at.");
  return text + "mox_node_probe_timestamp_seconds " + std::to_string(now) + "\n";
}

}  // namespace moxnode
