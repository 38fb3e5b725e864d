/* A program in C that takes its settings from the configuration variables of the system:
     runtime_demo_c [configuration file] */
#include <stdio.h>

#include "mox/common/buildinfo.h"
#include "mox/common/cvariables.h"

int main(int argc, char** argv) {
  int timeout = 0;
  char* log_file = NULL;
  int failed = argc > 1 ? cScanConf(argv[1]) : 0;
  if (failed == 0) failed = varGetInt("acktimeout", &timeout, 500);
  if (failed == 0) failed = varGetChar("logfile", &log_file, "none");
  if (failed != 0) {
    fprintf(stderr, "runtime_demo_c: error number %d\n", failed);
    return 1;
  }
  printf("acktimeout = %d\nlogfile = %s\n", timeout, log_file);
  if (build_link_time != NULL) printf("linked %s\n", build_link_time);
  return fflush(stdout) == 0 ? 0 : 1;
}
