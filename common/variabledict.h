// The dictionary of variables by name: an array of hash chains that own their variables. A copy has
// variables of its own. Iterate with VariableDictIter.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/variable.h"

struct VarKey {
  // Over the bytes of the name, in 32-bit unsigned arithmetic.
  static std::uint32_t hash(const char* name);
};

class VariableDict {
 public:
  static constexpr std::size_t chain_count = 127;

  // Takes the place of an earlier variable with the same name. What find returned before is stale.
  void insert(const Variable& variable);
  // Null when there is none; case matters.
  Variable* find(const char* name);
  const Variable* find(const char* name) const;
  // Brings every variable back to its default.
  void reset();

 private:
  friend class VariableDictIter;
  using Chain = std::vector<Variable>;

  Chain& chainOf(const char* name) { return chains_[VarKey::hash(name) % chain_count]; }

  std::array<Chain, chain_count> chains_;
};

// Visits every variable once, in no order that means anything. The dictionary outlives it.
class VariableDictIter {
 public:
  explicit VariableDictIter(const VariableDict& dict) : dict_(dict) {}
  const Variable* next();  // null behind the last one

 private:
  const VariableDict& dict_;
  std::size_t chain_ = 0;
  std::size_t index_ = 0;
};
