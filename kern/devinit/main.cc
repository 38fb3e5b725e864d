#include "kern/devinit/devinit.h"

int main(int argc, char** argv) {
  return devinit(argc, argv);
}
