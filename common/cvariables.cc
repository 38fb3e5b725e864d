#include "common/cvariables.h"

#include "common/scanconf.h"
#include "common/variables.h"

int varSetInt(const char* name, int value) {
  Status status;
  VarSet::instance().set(name, value, status);
  return status.number;
}

int varSetChar(const char* name, const char* value) {
  Status status;
  VarSet::instance().set(name, value, status);
  return status.number;
}

int varGetInt(const char* name, int* value, int initial) {
  Status status;
  VarSet::instance().read(name, value, initial, status);
  return status.number;
}

int varGetChar(const char* name, char** value, const char* initial) {
  Status status;
  VarSet::instance().read(name, value, initial, status);
  return status.number;
}

void cSetDefaultVariables(void) {
  VarSet::instance().setDefaults();
}

int cScanConf(const char* path) {
  Status status;
  ConfigRecord record;
  scanConf(path, record, status);
  return status.number;
}
