#include "kern/devinit/checkpoint.h"

#include "common/interrupt.h"
#include "kern/initstate.h"

void checkpoint() {
  const int signal = pendingInterrupt();
  if (signal == 0) return;
  cleanup();
  dieOfSignal(signal);
}
