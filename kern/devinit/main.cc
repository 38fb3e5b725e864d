#include "common/stdstreams.h"
#include "kern/devinit/devinit.h"

int main(int argc, char** argv) {
  openStandardStreams();
  return devinit(argc, argv);
}
