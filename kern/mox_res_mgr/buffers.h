// The buffers of a node: each is a shared memory segment on a key of its own. One row a buffer, in
// the order in which they are made and removed; the command language, the messages, the usage text
// and the record's printed form follow from the row and from the keyword of its token.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "kern/mox_res_mgr/lexer.h"

namespace resmgr {

constexpr unsigned keys_per_node = 8;

struct buffer {
  unsigned offset;             // of its key from the base key, below keys_per_node
  token keyword;               // makes its size known to the command language
  unsigned place;              // 0, 1, ... in the usage text and in what op::debug prints
  const char* type;            // of the size, as the usage text calls it
  const char* meaning;         // for the usage text; null: a command cannot give the size
  std::uint32_t initial = 0;   // bytes, unless the command says otherwise; 0: no segment
  bool may_be_absent = false;  // a DELETE does not report that there is none

  constexpr const char* name() const { return tok_keywords[keyword]; }
  constexpr bool can_be_given() const { return meaning != nullptr; }
};

inline constexpr buffer buffers[] = {
    {1, T_DATABUF, 0, "Int64", "Size of data buffer in bytes"},
    {2, T_TLOGBUF, 2, "Int32", "Size of tuple log buffer in bytes"},
    {3, T_NLOGBUF, 1, "Int32", "Size of buffer for node-internal log in bytes"},
    {4, T_DICTBUF, 4, nullptr, nullptr, 0x400000},
    {5, T_SQLBUF, 3, "Int32", "Size SQL work area in bytes"},
    {7, T_EVBUF, 5, "Int32", "Size of event buffer in bytes", 0, true},
};

// The same rows, in the order of their places.
inline constexpr auto buffers_by_place = [] {
  std::array<const buffer*, std::size(buffers)> result{};
  for (const buffer& row : buffers) result.at(row.place) = &row;
  return result;
}();

// The row of a keyword that a command may give; null for any other token.
constexpr const buffer* buffer_of(token keyword) {
  for (const buffer& row : buffers) {
    if (row.keyword == keyword && row.can_be_given()) return &row;
  }
  return nullptr;
}

// Every keyword of a buffer has its row, and no two rows share a key or a place.
static_assert(std::size(buffers) == T_EVBUF - T_DATABUF + 1);
static_assert(std::ranges::all_of(buffers, [](const buffer& row) {
  return row.keyword >= T_DATABUF && row.keyword <= T_EVBUF && row.offset > 0 &&
         row.offset < keys_per_node && buffers_by_place[row.place] == &row &&
         std::ranges::count(buffers, row.offset, &buffer::offset) == 1 &&
         std::ranges::count(buffers, row.keyword, &buffer::keyword) == 1;
}));

}  // namespace resmgr
