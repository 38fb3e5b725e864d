#include "common/variabledict.h"

#include <cstring>

std::uint32_t VarKey::hash(const char* name) {
  std::uint32_t h = 0;
  for (; *name != '\0'; ++name) h = h * 51349U + static_cast<unsigned char>(*name) * 374441U;
  return h;
}

void VariableDict::insert(const Variable& variable) {
  if (Variable* earlier = find(variable.name())) {
    *earlier = variable;
  } else {
    chainOf(variable.name()).push_back(variable);
  }
}

Variable* VariableDict::find(const char* name) {
  for (Variable& variable : chainOf(name)) {
    if (std::strcmp(variable.name(), name) == 0) return &variable;
  }
  return nullptr;
}

const Variable* VariableDict::find(const char* name) const {
  return const_cast<VariableDict*>(this)->find(name);
}

void VariableDict::reset() {
  for (Chain& chain : chains_) {
    for (Variable& variable : chain) variable.reset();
  }
}

const Variable* VariableDictIter::next() {
  while (chain_ < dict_.chains_.size() && index_ == dict_.chains_[chain_].size()) {
    ++chain_;
    index_ = 0;
  }
  return chain_ < dict_.chains_.size() ? &dict_.chains_[chain_][index_++] : nullptr;
}
