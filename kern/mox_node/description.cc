#include "kern/mox_node/description.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "kern/mox_node/failure.h"
#include "kern/mox_res_mgr/command_file.h"
#include "kern/mox_res_mgr/ipc_res.h"
#include "kern/mox_res_mgr/lexer.h"
#include "kern/mox_res_mgr/parser.h"
#include "kern/mox_res_mgr/report.h"
#include "kern/mox_res_mgr/syntax_report.h"

namespace moxnode {

namespace {

// What the resource manager reports while it exists, as a text.
class Reports {
 public:
  Reports() : stream_(open_memstream(&text_, &size_)), before_(resmgr::report_stream) {
    if (stream_ == nullptr) throw std::bad_alloc();
    resmgr::report_stream = stream_;
  }
  Reports(const Reports&) = delete;
  Reports& operator=(const Reports&) = delete;
  ~Reports() {
    resmgr::report_stream = before_;
    std::fclose(stream_);
    std::free(text_);
  }

  std::string text() const {
    std::fflush(stream_);
    return {text_, size_};
  }

 private:
  char* text_ = nullptr;
  std::size_t size_ = 0;
  std::FILE* stream_;
  std::FILE* before_;
};

// The lines of a report, without the mark that every message gets at the end.
Failure failure_of(std::string report) {
  if (report.ends_with('\n')) report.pop_back();
  constexpr const char* mark = "Error: ";
  if (report.starts_with(mark)) report.erase(0, std::char_traits<char>::length(mark));
  return Failure(report);
}

std::string text_of_file(const std::string& name) {
  const Reports reports;
  resmgr::command_file file;
  initStatus_s(&resmgr::stat);
  if (!file.read(name == "-" ? "/dev/stdin" : name.c_str())) {
    if (!resmgr::stat.failed()) throw failure_of(reports.text());
    throw Failure(resmgr::stat.getText(), resmgr::stat.os_error);
  }
  return resmgr::joined(file.words());
}

void refuse_search() {
  if (resmgr::lookahead != resmgr::T_OPTION) return;
  resmgr::match(resmgr::T_OPTION);
  resmgr::match(resmgr::T_SEARCH);
  throw Failure("--search names no base key, so that nobody can say what is wanted");
}

resmgr::op_list parse(std::string text) {
  resmgr::start_lexer(std::move(text));
  const resmgr::token command = resmgr::lookahead;
  if (command == resmgr::T_DELETE) {
    throw Failure("a delete command does not say what is wanted");
  }
  if (command != resmgr::T_CREATE && command != resmgr::T_CHECK) resmgr::error();
  resmgr::match(command);
  refuse_search();
  return command == resmgr::T_CREATE ? resmgr::create_operands() : resmgr::operands();
}

Node node_of(const resmgr::op& record) {
  if (record.ipc.ipcbase == 0) {
    throw Failure("node-" + std::to_string(record.node) + ": no base key (ipcbase) is given, or 0");
  }
  Node node{record.node, record.ipc, {}};
  for (const resmgr::device_res& device : record.devices) {
    node.devices.push_back({device.number, device.path, device.size});
  }
  return node;
}

void refuse_overlap(const std::vector<Node>& nodes) {
  std::vector<const Node*> sorted;
  sorted.reserve(nodes.size());
  for (const Node& node : nodes) sorted.push_back(&node);
  const auto base_of = [](const Node* node) { return node->ipc.ipcbase; };
  std::ranges::sort(sorted, {}, base_of);
  for (std::size_t i = 1; i < sorted.size(); ++i) {
    const int base = base_of(sorted[i]);
    const int lower = base_of(sorted[i - 1]);
    if (static_cast<std::int64_t>(base) - lower >= resmgr::keys_per_node) continue;
    throw Failure("node-" + std::to_string(sorted[i - 1]->number) + " and node-" +
                  std::to_string(sorted[i]->number) + " overlap: a node owns the " +
                  std::to_string(resmgr::keys_per_node) + " keys from its base on, here " +
                  std::to_string(lower) + " and " + std::to_string(base));
  }
}

}  // namespace

std::vector<Node> read_description(const Options& options) {
  std::string text =
      options.file.empty() ? resmgr::joined(options.words) : text_of_file(options.file);
  std::vector<Node> nodes;
  try {
    const resmgr::op_list records = parse(std::move(text));
    nodes.reserve(records.size());
    for (const resmgr::op& record : records) nodes.push_back(node_of(record));
  } catch (const resmgr::syntax_error& mistake) {
    throw failure_of(resmgr::describe(mistake));
  }
  refuse_overlap(nodes);
  return nodes;
}

}  // namespace moxnode
