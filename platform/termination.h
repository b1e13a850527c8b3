// How the host asks a process to end.
#pragma once

/// From now on a request to end the process (on Linux SIGTERM, SIGINT and SIGHUP; on Windows
/// ctrl-C and a closing console) ends the application's event loop with code 0, and any nested loop
/// of a modal dialog too, instead of ending the process at once. A request that comes while no loop
/// runs ends the next loop. A signal that the parent had made the process ignore stays
/// ignored. A second request of the same kind ends the process at once.
///
/// Call it once, on the GUI thread, when the application object exists.
void endEventLoopOnTermination();
