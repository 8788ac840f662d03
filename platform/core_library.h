// Operations of the platform's core library, libvelacore.so.7: the error
// state of the last failed platform call, process creation, program runs and
// flag files. Plain C linkage.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// The last recorded failure: code, source file (always a valid string) and
// source line. Reading changes nothing.
int VLIBCErrGet(void);
const char* VLIBCErrorGetFile(void);
int VLIBCErrorGetLine(void);

// fork(): 0 in the child, the child's pid in the caller, negative on failure
// with the error state set. `options` is a platform option word.
int VLIBCProcForkEx(int options);

// Runs `program` with up to four arguments (unused ones null), waits for it
// and returns its exit status, or -1.
int VLIBCExec(const char* program, const char* arg1, const char* arg2, const char* arg3,
              const char* arg4);

// Creates `path` when it is missing; negative on failure.
int VLIBCFileTouch(const char* path);

#ifdef __cplusplus
}
#endif
