#include "kern/mox_node/text.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <limits>

#include "common/base/printable.h"

namespace moxnode {

namespace {

constexpr const char* red = "\033[31m";
constexpr const char* green = "\033[32m";
constexpr const char* yellow = "\033[33m";

const char* colour_of(State state) {
  switch (state) {
    case State::PRESENT:
      return green;
    case State::ABSENT:
    case State::PARTIAL:
    case State::MIXED:
      return yellow;
    default:
      return red;
  }
}

std::string number_or(const std::optional<std::uint64_t>& number, const char* otherwise) {
  return number ? std::to_string(*number) : otherwise;
}

std::string time_text(std::int64_t seconds) {
  const std::time_t time = seconds;
  struct tm utc {};
  char text[40];
  if (gmtime_r(&time, &utc) == nullptr || std::strftime(text, sizeof text, "%FT%TZ", &utc) == 0) {
    return std::to_string(seconds);
  }
  return text;
}

class TextWriter {
 public:
  explicit TextWriter(TextStyle style) : style_(style) {}

  void node(const NodeReport& node, Verb verb) {
    text_ += "node-" + std::to_string(node.number) + " ";
    verdict(name_of(node.state), colour_of(node.state));
    text_ +=
        " ipcbase=" + std::to_string(node.ipcbase) + " attached=" + number_or(node.attached, "?");
    if (verb == Verb::PLAN) text_ += std::string(" plan=") + name_of(node.step);
    text_ += '\n';
    if (!node.reason.empty()) text_ += "  reason: " + node.reason + "\n";
    for (const ObjectReport& segment : node.segments) object(segment, name_of(segment.state));
    object(node.set, name_of(node.set.state));
    for (const ObjectReport& extra : node.extra) {
      object(extra, extra.look.found == Found::THERE ? "extra" : name_of(State::UNKNOWN));
    }
    for (const DeviceReport& reported : node.devices) device(reported);
  }

  void limit(const LimitReport& limit) {
    text_ += "limit " + limit.name + " needed=" + std::to_string(limit.needed) +
             " in-use=" + number_or(limit.in_use, "-") + " limit=" + number_or(limit.limit, "-") +
             " ";
    fits(limit.fits);
  }

  void space(const SpaceReport& space) {
    text_ += "space " + printable(space.path) + " needed=" + std::to_string(space.needed) +
             " free=" + number_or(space.free, "?") + " ";
    fits(space.fits);
  }

  void line(const std::string& text) { text_ += text + "\n"; }
  std::string take() { return std::move(text_); }

 private:
  void verdict(const char* word, const char* colour) {
    style_.coloured ? text_.append(colour).append(word).append("\033[0m") : text_.append(word);
  }

  void fits(const std::optional<bool>& fit) {
    if (!fit) {
      verdict("unknown", red);
    } else {
      *fit ? verdict("fits", green) : verdict("too much", red);
    }
    text_ += '\n';
  }

  void object(const ObjectReport& object, const char* word) {
    const Look& look = object.look;
    text_ += "  " + std::to_string(object.key) + " " + object.name() +
             " wanted=" + std::to_string(object.wanted) + " found=";
    text_ += look.found == Found::THERE    ? std::to_string(look.object.size)
             : look.found == Found::ABSENT ? "-"
                                           : "?";
    text_ += ' ';
    verdict(word, object.wanted == 0 ? yellow : colour_of(object.state));
    if (style_.verbose && look.found == Found::THERE) details(look.object, object);
    text_ += '\n';
  }

  void details(const Object& found, const ObjectReport& object) {
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", found.mode);
    text_ += " id=" + std::to_string(found.id) + " mode=" + mode +
             " uid=" + std::to_string(found.uid) + " gid=" + std::to_string(found.gid);
    if (object.kind() == Kind::SEGMENT) {
      text_ += " attached=" + std::to_string(found.attached) +
               " creator-pid=" + std::to_string(found.creator_pid) +
               " last-pid=" + std::to_string(found.last_pid);
    }
    text_ += " changed=" + time_text(found.changed_at);
  }

  void device(const DeviceReport& device) {
    const DeviceFacts& facts = device.facts;
    text_ += "  device-" + std::to_string(device.number) + " " +
             (device.path.empty() ? "-" : printable(device.path)) + " ";
    verdict(name_of(facts.state), facts.state == DeviceState::INITIALISED ? green : yellow);
    if (facts.kind != nullptr) text_ += std::string(" kind=") + facts.kind;
    if (facts.bytes) text_ += " bytes=" + std::to_string(*facts.bytes);
    if (facts.header) header(*facts.header);
    if (device.check != Check::NONE) text_ += std::string(" check=") + name_of(device.check);
    text_ += '\n';
  }

  void header(const DeviceHeader& header) {
    text_ += " number=" + std::to_string(header.number) +
             " type=" + (header.is_data ? "data" : "log") +
             " block-size=" + std::to_string(header.block_size);
    if (style_.verbose) text_ += " created=" + time_text(header.created);
    text_ += " name=\"" + printable(header.name) + "\"";
  }

  TextStyle style_;
  std::string text_;
};

// How a verb that changes things tells an operator whether it did.
std::string summary(const Report& report) {
  return std::string(name_of(report.verb)) + ": " +
         (report.changed ? std::string(name_of(report.before)) + ", now " + name_of(report.state)
                         : std::string(name_of(report.state)) + ", nothing changed");
}

}  // namespace

std::string to_text(const Report& report, TextStyle style) {
  TextWriter text(style);
  for (const NodeReport& node : report.nodes) text.node(node, report.verb);
  for (const LimitReport& limit : report.limits) text.limit(limit);
  for (const SpaceReport& space : report.space) text.space(space);
  if (report.verb == Verb::UP || report.verb == Verb::DOWN) text.line(summary(report));
  return text.take();
}

std::string to_commands(const Report& report, std::vector<std::string>& warnings) {
  constexpr std::uint64_t most = std::numeric_limits<std::int32_t>::max();
  std::string text;
  for (const NodeReport& node : report.nodes) {
    const std::string name = "node-" + std::to_string(node.number);
    text += "create " + name + ": ipcbase=" + std::to_string(node.ipcbase);
    for (const ObjectReport& segment : node.segments) {
      const std::uint64_t size = segment.look.object.size;
      if (!segment.buffer->can_be_given()) continue;
      if (size <= most) {
        text += std::string(", ") + segment.name() + "=" + std::to_string(size);
      } else {
        warnings.push_back(name + ": " + segment.name() + " has " + std::to_string(size) +
                           " bytes, more than a command can say; left out");
      }
    }
    text += '\n';
  }
  return text;
}

}  // namespace moxnode
