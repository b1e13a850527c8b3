// The display on which the program's windows are: how Qt serves it, and whether anybody sees it.
#pragma once

/// Chooses the windowing system before the application object is created; call it first.
///
/// On Linux, unless QT_QPA_PLATFORM already says which: X11 if DISPLAY is set, since only there a
/// window can be placed off the screen; else Wayland if WAYLAND_DISPLAY is set; else, and whenever
/// what is named cannot be opened, Qt's offscreen platform, on which the program runs without any
/// display. Nothing is drawn with OpenGL, so Qt is not to load it: its drivers are larger than the
/// whole program. QT_XCB_GL_INTEGRATION and QT_WAYLAND_CLIENT_BUFFER_INTEGRATION can still ask for
/// it. Qt is to run its own event loop: GLib's costs more each time it wakes. With it go Qt's own
/// file dialogs, since GTK's would run GLib's loop and keep all else waiting until it is closed. On
/// Windows there is nothing to choose.
void chooseDisplay();

/// Whether a window that the application opens can be seen by a user: false without a GUI
/// application and on a display that exists in memory only. Takes no lock.
bool dialogCanBeSeen();
