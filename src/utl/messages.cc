#include "src/utl/messages.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "errutils/moxnumbers.h"

namespace {

struct Message {
  std::int16_t number;
  const char* text;
};

constexpr Message builtin_messages[] = {
#define MOX_MESSAGE(number, name, text) {number, text},
    MOX_NUMBERS(MOX_MESSAGE)
#undef MOX_MESSAGE
};

constexpr bool isBefore(const Message& a, const Message& b) {
  return a.number < b.number;
}

constexpr bool isMissing(const Message& message) {
  return message.text == nullptr || *message.text == '\0';
}

static_assert(std::adjacent_find(std::begin(builtin_messages), std::end(builtin_messages),
                                 [](const Message& a, const Message& b) {
                                   return !isBefore(a, b);
                                 }) == std::end(builtin_messages),
              "the rows of MOX_NUMBERS must stand in ascending order of number");
static_assert(std::none_of(std::begin(builtin_messages), std::end(builtin_messages), isMissing),
              "a row of MOX_NUMBERS has no text");

struct SqlState {
  std::int32_t number;
  char state[8];
};

// In ascending order of number.
constexpr SqlState sqlstates[] = {
    {0, "00000"}, {160, "23000"}, {176, "02000"}, {192, "01000"}, {208, "40000"}, {216, "40000"},
};

// The messages of one language, in chains by number. A chain is a list of places in the table, each
// place being 1 above the index, and 0 the end.
struct MessageSet {
  const char* language = nullptr;
  const char* territory = nullptr;
  std::array<std::int16_t, 127> first{};
  std::array<std::int16_t, std::size(builtin_messages)> next{};

  static constexpr std::size_t chainOf(std::int16_t number) {
    return static_cast<std::uint16_t>(number) % 127U;
  }
};

// Bound when the program is compiled, so that a status formatted before main has its text.
constexpr MessageSet Status_utlInitMessages() {
  MessageSet set{"en", "us", {}, {}};
  for (std::size_t i = 0; i < std::size(builtin_messages); ++i) {
    std::int16_t& head = set.first[MessageSet::chainOf(builtin_messages[i].number)];
    set.next[i] = head;
    head = static_cast<std::int16_t>(i + 1);
  }
  return set;
}

// Set 0 is the built-in language; no other language has texts.
constexpr std::array<MessageSet, 32> message_sets = {Status_utlInitMessages()};

}  // namespace

const char* messageTemplate(std::int32_t number) {
  const auto low_bits = static_cast<std::int16_t>(number);
  const MessageSet& set = message_sets[0];
  int place = set.first[MessageSet::chainOf(low_bits)];
  while (place != 0) {
    const auto index = static_cast<std::size_t>(place - 1);
    if (builtin_messages[index].number == low_bits) return builtin_messages[index].text;
    place = set.next[index];
  }
  return "*** Error number not in use";
}

const char* sqlstate_lookup(std::int32_t number) {
  for (const SqlState& entry : sqlstates) {
    if (entry.number == number) return entry.state;
  }
  return "22000";
}
