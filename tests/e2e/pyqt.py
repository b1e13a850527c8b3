"""PyQt of the generation that the build is of: 5 where it has Remote Objects, else 6."""
try:
    from PyQt5 import QtCore, QtGui, QtRemoteObjects  # noqa: F401
except ImportError:
    from PyQt6 import QtCore, QtGui, QtRemoteObjects  # noqa: F401
