// The buffers of a node in the order in which they are made and removed, that of their keys. The
// command language, the messages, the usage text and the record's printed form follow from the rows
// in buffer_rows.h.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "kern/mox_res_mgr/lexer.h"

namespace resmgr {

constexpr unsigned keys_per_node = 8;

struct buffer {
  token keyword;          // makes its size known to the command language
  unsigned offset;        // of its key from the base key, below keys_per_node
  unsigned place;         // 0, 1, ... in the usage text and in what op::debug prints
  const char* type;       // of the size, as the usage text calls it
  const char* meaning;    // for the usage text; null: a command cannot give the size
  std::uint32_t initial;  // bytes, unless the command says otherwise; 0: no segment
  bool may_be_absent;     // a DELETE does not report that there is none

  constexpr const char* name() const { return tok_keywords[keyword]; }
  constexpr bool can_be_given() const { return meaning != nullptr; }
};

// The rows in the order of one of their columns.
template <class Column>
constexpr auto buffers_in_order_of(Column column) {
#define RESMGR_BUFFER(kind, keyword, ...) buffer{kind, __VA_ARGS__},
  std::array rows = {RESMGR_BUFFERS(RESMGR_BUFFER)};
#undef RESMGR_BUFFER
  std::ranges::sort(rows, {}, column);
  return rows;
}

inline constexpr auto buffers = buffers_in_order_of(&buffer::offset);
inline constexpr auto buffers_by_place = buffers_in_order_of(&buffer::place);

// The row of a keyword that a command may give; null for any other token.
constexpr const buffer* buffer_of(token keyword) {
  for (const buffer& row : buffers) {
    if (row.keyword == keyword && row.can_be_given()) return &row;
  }
  return nullptr;
}

// No two rows share a key or a place.
static_assert(buffers.front().offset > 0 && buffers.back().offset < keys_per_node);
static_assert(std::ranges::adjacent_find(buffers, {}, &buffer::offset) == buffers.end());
static_assert(std::ranges::adjacent_find(buffers_by_place, {}, &buffer::place) ==
              buffers_by_place.end());

}  // namespace resmgr
