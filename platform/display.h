// The display on which the program's windows are.
#pragma once

/// Chooses the windowing system before the application object is created; call it first.
///
/// On Linux, unless QT_QPA_PLATFORM already says which: X11 if DISPLAY is set, since only there a
/// window can be placed off the screen; else Wayland if WAYLAND_DISPLAY is set; else, and whenever
/// what is named cannot be opened, Qt's offscreen platform, on which the program runs without any
/// display. On Windows there is nothing to choose.
void chooseDisplay();
