// The dictionary of variables by name: an array of hash chains. Used by VarSet alone; iterate with
// VariableDictIter.
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

  // The variable is not owned. It takes the place of an earlier one with the same name.
  void insert(Variable* variable);
  // Null when there is none; case matters.
  Variable* find(const char* name) const;

 private:
  friend class VariableDictIter;
  using Chain = std::vector<Variable*>;

  std::array<Chain, chain_count> chains_;
};

// Visits every variable once, in no order that means anything.
class VariableDictIter {
 public:
  explicit VariableDictIter(const VariableDict& dict) : dict_(dict) {}
  Variable* next();  // null behind the last one

 private:
  const VariableDict& dict_;
  std::size_t chain_ = 0;
  std::size_t index_ = 0;
};
