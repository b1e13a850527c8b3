// What the user can see.
#pragma once

/// Whether a window that the application opens can be seen by a user: false without a GUI
/// application and on a display that exists in memory only. Takes no lock.
bool dialogCanBeSeen();
