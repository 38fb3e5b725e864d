#include "common/variabledict.h"

#include <cstring>

std::uint32_t VarKey::hash(const char* name) {
  std::uint32_t h = 0;
  for (; *name != '\0'; ++name) h = h * 51349U + static_cast<unsigned char>(*name) * 374441U;
  return h;
}

void VariableDict::insert(Variable* variable) {
  Chain& chain = chains_[VarKey::hash(variable->name()) % chain_count];
  for (Variable*& earlier : chain) {
    if (std::strcmp(earlier->name(), variable->name()) != 0) continue;
    earlier = variable;
    return;
  }
  chain.push_back(variable);
}

Variable* VariableDict::find(const char* name) const {
  for (Variable* variable : chains_[VarKey::hash(name) % chain_count]) {
    if (std::strcmp(variable->name(), name) == 0) return variable;
  }
  return nullptr;
}

Variable* VariableDictIter::next() {
  while (chain_ < dict_.chains_.size() && index_ == dict_.chains_[chain_].size()) {
    ++chain_;
    index_ = 0;
  }
  return chain_ < dict_.chains_.size() ? dict_.chains_[chain_][index_++] : nullptr;
}
