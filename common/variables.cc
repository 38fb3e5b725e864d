#include "common/variables.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "common/base/eternal.h"
#include "common/base/printable.h"
#include "common/logger.h"

namespace {

struct Order {
  const char* smaller;
  const char* larger;
};

constexpr Order orders[] = {
    {"aliveint", "alivetime"},
    {"relalg_min_buckets", "relalg_max_buckets"},
    {"ntables", "nfragments"},
    {"nfragments", "nreplicas"},
};

// Setting the variable has no effect while the other one has one of these two values.
struct Dependence {
  const char* name;
  const char* on;
  const char* off_values[2];
};

constexpr Dependence dependences[] = {
    {"syslog_ident", "syslog_facility", {"none", ""}},
    {"loglevmap_dbg", "syslog_facility", {"none", ""}},
    {"loglevmap_inf", "syslog_facility", {"none", ""}},
    {"loglevmap_wrn", "syslog_facility", {"none", ""}},
    {"loglevmap_err", "syslog_facility", {"none", ""}},
    {"loglevmap_vse", "syslog_facility", {"none", ""}},
    {"loglevmap_dia", "syslog_facility", {"none", ""}},
    {"loglevmap_tst", "syslog_facility", {"none", ""}},
    {"sql_shm_size", "sql_use_shm", {"no", "no"}},
    {"sql_shm_gclvl", "sql_use_shm", {"no", "no"}},
    {"sql_shm_gcunused", "sql_use_shm", {"no", "no"}},
};

bool contradict(const VariableDict& dict, const Order& order) {
  const std::int32_t larger = dict.find(order.larger)->number();
  return larger != 0 && dict.find(order.smaller)->number() > larger;
}

Status contradiction(const Order& order) {
  Status status;
  status.set(SEV_SYSTEMERR, MOX_VARIABLES_CONTRADICT, 0,
             {order.smaller, order.larger, "the first must not be above the second"});
  return status;
}

bool withoutEffect(const VariableDict& dict, const Dependence& dependence) {
  if (!dict.find(dependence.name)->isSet()) return false;
  const std::string& value = dict.find(dependence.on)->text();
  return value == dependence.off_values[0] || value == dependence.off_values[1];
}

}  // namespace

VarSet& VarSet::instance() {
  static Eternal<VarSet> set;
  return set.value;
}

VarSet::VarSet() {
  defineVariables(dict_);
}

Variable* VarSet::find(const char* name, Status& status) {
  initStatus_s(&status);
  Variable* variable = dict_.find(name);
  if (variable != nullptr) return variable;
  logLine(LEVEL_WRN, "No variable named " + printable(name) + ".");
  status.set(SEV_SYSTEMERR, MOX_NO_SUCH_VARIABLE, 0, {name});
  return nullptr;
}

void VarSet::set(const char* name, const char* value, Status& status) {
  if (Variable* variable = find(name, status)) variable->set(value, status);
}

void VarSet::set(const char* name, int value, Status& status) {
  if (Variable* variable = find(name, status)) variable->set(value, status);
}

void VarSet::read(const char* name, int* value, int initial, Status& status) {
  *value = initial;
  const Variable* variable = find(name, status);
  if (variable == nullptr || !variable->isSet()) return;
  if (variable->kind() == Variable::INTEGER) {
    *value = variable->number();
    return;
  }
  status.set(SEV_SYSTEMERR, MOX_VALUE_NOT_A_NUMBER, 0, {variable->text(), name});
}

void VarSet::read(const char* name, char** value, const char* initial, Status& status) {
  const Variable* variable = find(name, status);
  const bool is_set = variable != nullptr && variable->isSet();
  *value = const_cast<char*>(is_set ? variable->text().c_str() : initial);
}

void VarSet::setDefaults() {
  dict_.reset();
}

void VarSet::print(std::FILE* stream) const {
  std::vector<const Variable*> sorted;
  VariableDictIter iterator(dict_);
  while (const Variable* variable = iterator.next()) sorted.push_back(variable);
  std::sort(sorted.begin(), sorted.end(), [](const Variable* a, const Variable* b) {
    return std::strcmp(a->name(), b->name()) < 0;
  });
  for (const Variable* variable : sorted) {
    std::fprintf(stream, "%s = %s\n", variable->name(), printable(variable->text()).c_str());
  }
}

void VarSet::constraints(Status& status) const {
  initStatus_s(&status);
  for (const Order& order : orders) {
    if (!contradict(dict_, order)) continue;
    status = contradiction(order);
    return;
  }
}

void VarSet::depend_check() const {
  for (const Order& order : orders) {
    if (contradict(dict_, order)) logLine(LEVEL_WRN, contradiction(order).getText());
  }
  for (const Dependence& dependence : dependences) {
    if (!withoutEffect(dict_, dependence)) continue;
    logLine(LEVEL_WRN, "Variable \"" + std::string(dependence.name) + "\" has no effect: \"" +
                           dependence.on + "\" is \"" +
                           printable(dict_.find(dependence.on)->text()) + "\"");
  }
}
