#include "kern/device/settings.h"

int readVerify = 0;
int syncsz = 32;
