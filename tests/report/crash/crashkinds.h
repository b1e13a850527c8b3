// What the programs that fail have in common on every host.
#pragma once

#include <string>
#include <vector>

/// A way to fail. fail() announces what the report must show, and fails.
struct CrashKind {
    const char *name;
    void (*fail)();
    bool returns = false; ///< and ends the application in its own time
};

/// What a program says on standard output whose exit handlers run: one that crashes never does.
constexpr char kExitHandlersRan[] = "exit handlers ran\n";

/// Prints, one fact a line, what the report must show, and last "crashing". Each host has its own.
void announce(const char *instruction = nullptr);

void throwNow();

/// Runs the function on a QThread, to its end.
void runOnWorker(void (*function)());

/// The rest of main(): fails in the way that is named in `own`, or in those that every host has. A
/// name that begins with "early-" fails without an application. Returns the exit code if nothing
/// did.
int runCrashProgram(int argc, char **argv, const std::vector<CrashKind> &own);
