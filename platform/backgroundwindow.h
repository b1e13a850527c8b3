// A window of a service: there for the system, not for the user.
#pragma once

class QWidget;

/// Keeps a top-level window out of the user's way from its first show() on: it never gets the
/// keyboard and stands in no task bar, pager, window switcher or list of windows. Its flags, texts
/// and geometry stay what they are. Other windows of the program are not concerned.
///
/// On X11 no window manager takes care of it, so it also stays where it was put. On Wayland, where
/// a program cannot place its windows, it is not handed to the compositor at all. On Windows it
/// cannot be activated, by the system neither, and the program keeps the resolution of its timers
/// although no window of it can be seen. Creates the native window; GUI thread only, before
/// the window is shown.
void keepInBackground(QWidget *window);
