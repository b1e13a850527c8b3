#pragma once

#include <QDataStream>

/// In which order the remote-objects protocol of this generation of Qt writes the bytes of every
/// number: lengths, kinds, indexes and the characters of texts. In all else the frames that a
/// consumer of this interface sends are alike in both generations, as recorded sessions of both
/// show. frameformat_qt5.cpp and frameformat_qt6.cpp each say what theirs is; CMake takes the one
/// that the library is of.
extern const QDataStream::ByteOrder kFrameByteOrder;
