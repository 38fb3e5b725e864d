// The configuration variables. The process has one set, whose values come from the defaults, from
// configuration files (common/scanconf) and from -D options; a program can have others, to try a
// configuration before it takes effect. Every failure is a status of severity 4: 320 for an unknown
// name, which is also logged, and those of Variable::set. One thread at a time may use a set.
#pragma once

#include <cstdio>

#include "common/variabledict.h"
#include "errutils/statuss.h"

class VarSet {
 public:
  // The set of the process: made at its first use, never destroyed.
  static VarSet& instance();

  // A set of its own, with the defaults. Copies have values of their own, too: assigned to the set
  // of the process, they take effect there.
  VarSet();

  void set(const char* name, const char* value, Status& status);
  void set(const char* name, int value, Status& status);

  // Give the value of a variable that was set, otherwise initial (also after a failure; 368 for the
  // number of a string variable). A text stays valid until the variable is set again.
  void read(const char* name, int* value, int initial, Status& status);
  void read(const char* name, char** value, const char* initial, Status& status);

  // The variable itself, whose value is the table's default until it is set; null: unknown name.
  const Variable* get(const char* name) const { return dict_.find(name); }
  // All of them, for a VariableDictIter.
  const VariableDict& dict() const { return dict_; }

  void setDefaults();                   // of all variables
  void print(std::FILE* stream) const;  // a line "name = value" each, sorted by name

  // The checks between variables: 384 with severity 4 for the first of these that does not hold
  // (the value 0 of the second one means "no limit"):
  //   aliveint <= alivetime                     a node lives longer than one sign of life takes
  //   relalg_min_buckets <= relalg_max_buckets
  //   ntables <= nfragments <= nreplicas        a table has a fragment, a fragment a replica
  void constraints(Status& status) const;

  // To be run when all values are in. Logs at level WRN what constraints complains of, and each
  // setting that has no effect: syslog_ident and loglevmap_* without a syslog_facility; sql_shm_*
  // without sql_use_shm.
  void depend_check() const;

 private:
  Variable* find(const char* name, Status& status);

  VariableDict dict_;
};

// Enters all variables into the dictionary, with their defaults. Defined in common/vartable.cc.
void defineVariables(VariableDict& dict);
