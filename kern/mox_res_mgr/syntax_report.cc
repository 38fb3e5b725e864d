#include "kern/mox_res_mgr/syntax_report.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <numeric>
#include <string_view>
#include <vector>

#include "common/base/printable.h"
#include "common/logger.h"
#include "kern/mox_res_mgr/report.h"
#include "kern/mox_res_mgr/usage.h"

namespace resmgr {

namespace {

// How many characters have to be inserted, left out or replaced to turn one word into the other.
std::size_t distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (const char c : from) {
    std::size_t diagonal = row[0]++;
    for (std::size_t i = 0; i < to.size(); ++i) {
      const std::size_t replaced = diagonal + (c == to[i] ? 0 : 1);
      diagonal = row[i + 1];
      row[i + 1] = std::min({replaced, diagonal + 1, row[i] + 1});
    }
  }
  return row.back();
}

std::string lower_case(std::string word) {
  for (char& c : word) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return word;
}

// The keyword of a command that comes next to the word; empty when none is similar.
std::string nearest_keyword(const std::string& word) {
  constexpr std::size_t longest = 20;
  std::string nearest;
  std::size_t best = word.size() / 3 + 1;
  if (word.size() > longest) return nearest;
  for (int kind = T_CREATE; kind < T_INT; ++kind) {
    const bool reserved = kind == T_DICTBUF || kind == T_TYPE || kind == T_DATA || kind == T_LOG;
    const std::size_t change = distance(word, tok_keywords[kind]);
    if (reserved || change >= best) continue;
    best = change;
    nearest = tok_keywords[kind];
  }
  return nearest;
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// The digits right in front of a position.
std::string number_before(const std::string& text, std::size_t end) {
  std::size_t begin = end;
  while (begin > 0 && is_digit(text[begin - 1])) --begin;
  return text.substr(begin, end - begin);
}

// Advice for a word that stands right behind a number and seems to be its unit.
std::string unit_advice(std::string_view before, const std::string& number,
                        const std::string& unit) {
  const std::string letters = lower_case(unit);
  const std::size_t power = std::string_view("kmgt").find(letters[0]);
  const bool is_unit = letters.size() == 1 || letters.substr(1) == "b" || letters.substr(1) == "ib";
  constexpr std::size_t most_digits = 6;  // 64 bits hold the product
  if (power == std::string_view::npos || !is_unit || number.size() > most_digits) return {};
  while (!before.empty() && (before.back() == '=' || before.back() == ' ')) before.remove_suffix(1);
  if (before.ends_with(tok_keywords[T_SIZE])) return "the size of a device is a plain number of MB";
  const std::uint64_t bytes = std::stoull(number) << (10 * (power + 1));
  return "sizes are plain bytes: " + number + unit + " is " + std::to_string(bytes);
}

std::string word_advice(const std::string& found) {
  const std::string word = lower_case(found);
  const std::string keyword = nearest_keyword(word);
  if (keyword.empty() || keyword == found) return {};
  return keyword == word ? "keywords are lower case: " + keyword : "did you mean " + keyword + "?";
}

// The likely cause of the mistake; empty when it is not known.
std::string advice(const syntax_error& mistake) {
  const std::string& text = mistake.read;
  if (mistake.token_start >= text.size()) return {};
  const std::string number = number_before(text, mistake.token_start);
  const std::string found = text.substr(mistake.token_start);
  if (number.empty()) return word_advice(found);
  const std::size_t before = mistake.token_start - number.size();
  return unit_advice(std::string_view(text).substr(0, before), number, found);
}

}  // namespace

void explain(const syntax_error& mistake, const std::string& place) {
  const std::string cause = advice(mistake);
  if (!place.empty()) {
    logLine(LEVEL_WRN, "syntax error in " + place + (cause.empty() ? "" : ": " + cause));
  } else if (!cause.empty()) {
    logLine(LEVEL_WRN, "syntax error: " + cause);
  }
}

std::string describe(const syntax_error& mistake) {
  const auto error_line = [](const std::string& text) { return "Error: " + text + "\n"; };
  const std::string read = printable(mistake.read);
  // An escaped character is wider than itself.
  const std::size_t columns = std::max<std::size_t>(mistake.read.size(), 1) - 1;
  const std::string caret(columns + read.size() - mistake.read.size(), ' ');
  return (mistake.reason.empty() ? "" : error_line(mistake.reason)) +
         error_line(printable(mistake.not_understood)) + read + "\n" + caret + "^\n";
}

void crash(const syntax_error& mistake) {
  say("%s", describe(mistake).c_str());
  usage();
  crash();
}

}  // namespace resmgr
