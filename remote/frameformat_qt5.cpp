#include "remote/frameformat.h"

// "QtRO 1.3", of Qt 5.12 to 5.15: as QDataStream has it where nothing else is said.
const QDataStream::ByteOrder kFrameByteOrder = QDataStream::BigEndian;
