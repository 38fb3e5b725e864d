#include "src/utl/fmtstatus.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "common/base/printable.h"
#include "src/utl/messages.h"

char status_prefix[8] = "KORV";
int fmtstatus_errtrace = 0;

namespace {

constexpr std::size_t text_capacity = Status::max_text - 1;

// Collects a text that ends in "TRUNCATED!" from the first piece on that does not fit.
class BoundedText {
 public:
  void append(std::string_view piece) {
    if (truncated_) return;
    if (text_.size() + piece.size() <= text_capacity) {
      text_ += piece;
      return;
    }
    constexpr std::string_view mark = "TRUNCATED!";
    text_.resize(std::min(text_.size(), text_capacity - mark.size()));
    text_ += mark;
    truncated_ = true;
  }

  const std::string& str() const { return text_; }

 private:
  std::string text_;
  bool truncated_ = false;
};

std::vector<std::string_view> parameters(const Status& status) {
  std::vector<std::string_view> result;
  const char* next = status.params;
  for (int i = 0; i < status.param_count && i < Status::max_params; ++i) {
    result.emplace_back(next);
    next += result.back().size() + 1;
  }
  return result;
}

std::string head(const Status& status) {
  const bool known = status.severity >= 0 && status.severity <= SEV_INTERNERR;
  const char letter = "XIWESA"[known ? status.severity : SEV_INTERNERR];
  char text[32];
  std::snprintf(text, sizeof text, "%s-%c-%5.5d: ", status_prefix, letter, status.number);
  return text;
}

void appendMessage(const Status& status, BoundedText& text) {
  const std::string_view message = messageTemplate(status.number);
  const std::vector<std::string_view> params = parameters(status);
  std::vector<bool> used(params.size(), false);

  for (std::size_t i = 0; i < message.size(); ++i) {
    const char next = i + 1 < message.size() ? message[i + 1] : '\0';
    if (message[i] == '%' && next >= '1' && next <= '9') {
      const auto index = static_cast<std::size_t>(next - '1');
      if (index < params.size()) {
        text.append(printable(params[index]));
        used[index] = true;
      }
      ++i;
    } else if (message[i] == '%' && next == 'i') {
      text.append(std::to_string(status.os_error));
      ++i;
    } else {
      text.append(message.substr(i, 1));
    }
  }
  for (std::size_t i = 0; i < params.size(); ++i) {
    if (!used[i]) text.append(std::string(" ").append(printable(params[i])));
  }
}

std::string position(const char* file, int line) {
  return std::string("[").append(file).append(":").append(std::to_string(line)).append("]");
}

void appendPositions(const Status& status, BoundedText& text) {
  if (status.line != 0) text.append(std::string(" ").append(position(status.file, status.line)));
  for (int i = 0; i < status.trace_count; ++i) {
    text.append(std::string("\n").append(position(status.trace[i].file, status.trace[i].line)));
  }
}

void copyBounded(char* to, std::size_t capacity, std::string_view text) {
  const std::size_t length = std::min(text.size(), capacity - 1);
  std::memcpy(to, text.data(), length);
  to[length] = '\0';
}

}  // namespace

void utlFormatStatus(Status* status) {
  if (status->text[0] != '\0') return;
  if (status->sqlstate[0] == '\0') {
    copyBounded(status->sqlstate, sizeof status->sqlstate, sqlstate_lookup(status->number));
  }

  BoundedText text;
  text.append(head(*status));
  appendMessage(*status, text);
  const bool error = status->severity != SEV_SUCCESS && status->severity != SEV_WARNING;
  if (error && fmtstatus_errtrace != 0) appendPositions(*status, text);
  copyBounded(status->text, sizeof status->text, text.str());

  if (status->os_error != 0 && status->os_text[0] == '\0') {
    copyBounded(status->os_text, sizeof status->os_text, std::strerror(status->os_error));
  }
}

const char* Status::getText() {
  utlFormatStatus(this);
  return text;
}

const char* Status::getText(Moxstatus_e number) {
  return messageTemplate(number);
}
