#include "common/lockmem.h"

[[gnu::weak]] void setRTpriority(unsigned char /*priority*/, Status& /*status*/) {}
[[gnu::weak]] void startLockMem(Status& /*status*/) {}
[[gnu::weak]] void incLockMem(Status& /*status*/) {}
[[gnu::weak]] void incLockMem(const void* /*address*/, unsigned /*size*/, Status& /*status*/) {}
[[gnu::weak]] void lastLockMem(Status& /*status*/) {}
