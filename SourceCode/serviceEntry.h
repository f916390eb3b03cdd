#ifndef PK_SERVICE_ENTRY_H
#define PK_SERVICE_ENTRY_H

// The option globals, final before the first thread starts.
extern unsigned char commandObjEnable;
extern unsigned char selfCtrlEnable;

// Parses the options into the globals. Returns -1 to go on, or the exit status
// the process ends with (0 after -h, 1 after an illegal option).
int parseOptions(int argc, char** argv);

// Writes the version report to standard output and to /tmp/aisgVersion.
void displayVersion();

// Brings up the singletons in their fixed order and starts the timer service.
void startupChain();

#endif
