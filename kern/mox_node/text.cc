#include "kern/mox_node/text.h"

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
  explicit TextWriter(const Report& report, TextStyle style)
      : style_(style), lines_(report.nodes.size() * bytes_per_node) {}

  void node(const NodeReport& node, Verb verb) {
    lines_.add("node-", node.number, ' ');
    verdict(name_of(node.state), colour_of(node.state));
    lines_.add(" ipcbase=", node.ipcbase, " attached=");
    number_or(node.attached, "?");
    if (verb == Verb::PLAN) lines_.add(" plan=", name_of(node.step));
    lines_.add('\n');
    if (!node.reason.empty()) lines_.add("  reason: ", node.reason, '\n');
    for (const ObjectReport& segment : node.segments) object(segment, name_of(segment.state));
    object(node.set, name_of(node.set.state));
    for (const ObjectReport& extra : node.extra) {
      object(extra, extra.look.found == Found::THERE ? "extra" : name_of(State::UNKNOWN));
    }
    for (const DeviceReport& reported : node.devices) device(reported);
  }

  void limit(const LimitReport& limit) {
    lines_.add("limit ", limit.name, " needed=", limit.needed, " in-use=");
    const char* const none = limit.fits ? "-" : "?";
    number_or(limit.in_use, none);
    lines_.add(" limit=");
    number_or(limit.limit, none);
    fits(limit.fits);
  }

  void space(const SpaceReport& space) {
    lines_.add("space ", printable(space.path), " needed=", space.needed, " free=");
    number_or(space.free, "?");
    fits(space.fits);
  }

  // How a verb that changes things tells an operator whether it did.
  void summary(const Report& report) {
    lines_.add(name_of(report.verb), ": ");
    if (report.changed) {
      lines_.add(name_of(report.before), ", now ", name_of(report.state), '\n');
    } else {
      lines_.add(name_of(report.state), ", nothing changed\n");
    }
  }

  Lines take() { return std::move(lines_); }

 private:
  static constexpr std::size_t bytes_per_node = 1000;

  void verdict(const char* word, const char* colour) {
    if (style_.coloured) {
      lines_.add(colour, word, "\033[0m");
    } else {
      lines_.add(word);
    }
  }

  void number_or(const std::optional<std::uint64_t>& number, const char* otherwise) {
    if (number) {
      lines_.add(*number);
    } else {
      lines_.add(otherwise);
    }
  }

  void fits(const std::optional<bool>& fit) {
    lines_.add(' ');
    if (!fit) {
      verdict("unknown", red);
    } else {
      *fit ? verdict("fits", green) : verdict("too much", red);
    }
    lines_.add('\n');
  }

  void object(const ObjectReport& object, const char* word) {
    const Look& look = object.look;
    lines_.add("  ", object.key, ' ', object.name(), " wanted=", object.wanted, " found=");
    if (look.found == Found::THERE) {
      lines_.add(look.object.size);
    } else {
      lines_.add(look.found == Found::ABSENT ? '-' : '?');
    }
    lines_.add(' ');
    verdict(word, object.wanted == 0 ? yellow : colour_of(object.state));
    if (style_.verbose && look.found == Found::THERE) details(look.object, object.kind());
    lines_.add('\n');
  }

  void details(const Object& found, Kind kind) {
    lines_.add(" id=", found.id, " mode=", octal(found.mode), " uid=", found.uid,
               " gid=", found.gid);
    if (kind == Kind::SEGMENT) {
      lines_.add(" attached=", found.attached, " creator-pid=", found.creator_pid,
                 " last-pid=", found.last_pid);
    }
    lines_.add(" changed=", time_text(found.changed_at));
  }

  void device(const DeviceReport& device) {
    const DeviceFacts& facts = device.facts;
    lines_.add("  device-", device.number, ' ', device.path.empty() ? "-" : printable(device.path),
               ' ');
    verdict(name_of(facts.state), facts.state == DeviceState::INITIALISED ? green : yellow);
    if (facts.kind != nullptr) lines_.add(" kind=", facts.kind);
    if (facts.bytes) lines_.add(" bytes=", *facts.bytes);
    if (facts.header) header(*facts.header);
    if (device.check != Check::NONE) lines_.add(" check=", name_of(device.check));
    lines_.add('\n');
  }

  void header(const DeviceHeader& header) {
    lines_.add(" number=", header.number, " type=", header.is_data ? "data" : "log",
               " block-size=", header.block_size);
    if (style_.verbose) lines_.add(" created=", time_text(header.created));
    lines_.add(" name=\"", printable(header.name), '"');
  }

  TextStyle style_;
  Lines lines_;
};

}  // namespace

Lines to_text(const Report& report, TextStyle style) {
  TextWriter text(report, style);
  for (const NodeReport& node : report.nodes) text.node(node, report.verb);
  for (const LimitReport& limit : report.limits) text.limit(limit);
  for (const SpaceReport& space : report.space) text.space(space);
  if (report.verb == Verb::UP || report.verb == Verb::DOWN) text.summary(report);
  return text.take();
}

Lines to_commands(const Report& report, std::vector<std::string>& warnings) {
  constexpr std::uint64_t most = std::numeric_limits<std::int32_t>::max();
  Lines lines(0);
  for (const NodeReport& node : report.nodes) {
    lines.add("create node-", node.number, ": ipcbase=", node.ipcbase);
    for (const ObjectReport& segment : node.segments) {
      const std::uint64_t size = segment.look.object.size;
      if (!segment.buffer->can_be_given()) continue;
      if (size <= most) {
        lines.add(", ", segment.name(), '=', size);
      } else {
        warnings.push_back(full_name(node, segment) + " has " + std::to_string(size) +
                           " bytes, more than a command can say; left out of its line");
      }
    }
    lines.add('\n');
  }
  return lines;
}

}  // namespace moxnode
