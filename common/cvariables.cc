#include "common/cvariables.h"

#include "common/scanconf.h"
#include "common/variables.h"

namespace {

// The number of the status that the call leaves. An exception, which memory that has run out
// throws, must not reach a caller in C.
template <typename Call>
int numberOf(const Call& call) {
  Status status;
  try {
    call(status);
  } catch (...) {
    return MOX_CANNOT_HAPPEN;
  }
  return status.number;
}

const char* nameOrEmpty(const char* name) {
  return name != nullptr ? name : "";
}

VarSet& variables() {
  return VarSet::instance();
}

}  // namespace

int varSetInt(const char* name, int value) {
  return numberOf([&](Status& status) { variables().set(nameOrEmpty(name), value, status); });
}

int varSetChar(const char* name, const char* value) {
  return numberOf([&](Status& status) { variables().set(nameOrEmpty(name), value, status); });
}

int varGetInt(const char* name, int* value, int initial) {
  return numberOf(
      [&](Status& status) { variables().read(nameOrEmpty(name), value, initial, status); });
}

int varGetChar(const char* name, char** value, const char* initial) {
  return numberOf(
      [&](Status& status) { variables().read(nameOrEmpty(name), value, initial, status); });
}

void cSetDefaultVariables(void) {
  static_cast<void>(numberOf([](Status& /*status*/) { variables().setDefaults(); }));
}

int cScanConf(const char* path) {
  return numberOf([&](Status& status) {
    ConfigRecord record;
    scanConf(nameOrEmpty(path), record, status);
  });
}
