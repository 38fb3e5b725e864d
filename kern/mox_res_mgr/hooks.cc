// This tool attaches segments only to make them, so it has nothing to lock and no priority to
// raise.
#include "common/lockmem.h"

void setRTpriority(unsigned char /*priority*/, Status& /*status*/) {}
void startLockMem(Status& /*status*/) {}
void incLockMem(Status& /*status*/) {}
void incLockMem(const void* /*address*/, unsigned /*size*/, Status& /*status*/) {}
void lastLockMem(Status& /*status*/) {}
