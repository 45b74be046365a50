// How a command that has finished its work leaves the process.
#ifndef TOOLS_OPCVK_PROCESS_END_H_
#define TOOLS_OPCVK_PROCESS_END_H_

namespace opcvk {

// Ends the process with status 0 at once, without running destructors or exit handlers,
// for a command whose every file is written, closed and renamed: a package of 100,000 files
// holds as many records, and freeing them one by one only to hand the pages back to the
// operating system costs a fifth of a second or more.  Standard output and standard error are
// flushed first; if that fails, this returns, and the caller goes on as if it had not been
// called (the tool then reports the failed write as usual).
//
// In a build with a leak checker (AddressSanitizer) it always returns, so that the whole
// teardown still runs and is checked there.  Only the tool may call it, never the library:
// a program that links the library owns its process.
void endProcessWithoutTeardown();

// Whether endProcessWithoutTeardown ends the process in this build (false in a leak-checked
// one).
bool processEndSkipsTeardown();

}  // namespace opcvk

#endif  // TOOLS_OPCVK_PROCESS_END_H_
