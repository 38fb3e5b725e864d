/* The configuration variables for callers in C. Each function returns 0, or the error number of
   what went wrong: see VarSet (common/variables.h) and scanConf (common/scanconf.h), which they
   call, and 3360 when memory has run out. A null name is an unknown one, a null text is refused. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

int varSetInt(const char* name, int value);
int varSetChar(const char* name, const char* value);

/* initial is what a variable that was not set gives. The text is not the caller's, and stays valid
   until the variable is set again. */
int varGetInt(const char* name, int* value, int initial);
int varGetChar(const char* name, char** value, const char* initial);

void cSetDefaultVariables(void);

/* Takes the `set` lines of a file; its other lines are checked and have no effect. */
int cScanConf(const char* path);

#ifdef __cplusplus
}
#endif
