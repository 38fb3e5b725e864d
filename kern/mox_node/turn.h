// The verbs that change things take turns on a host. A turn is given back when its object goes.
#pragma once

#include "common/base/descriptor.h"

namespace moxnode {

class Turn {
 public:
  // Waits for the others, up to 10 seconds. Throws Failure when it does not get its turn; dies of a
  // signal that arrives meanwhile.
  Turn();

 private:
  Descriptor file_;
};

// Lets time pass; dies of a signal that arrives meanwhile.
void pause_milliseconds(int milliseconds);

}  // namespace moxnode
