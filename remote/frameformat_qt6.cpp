#include "remote/frameformat.h"

// "QtRO 2.0", of Qt 6. A frame that calls the slot with "hi", byte by byte:
//
//     37 00 00 00                         55 bytes follow
//     06 00                               a call
//     10 00 00 00 54 00 6f 00 6e 00 ...   the object's name, 16 bytes: "Tonewell"
//     00 00 00 00  00 00 00 00            of a method, the first slot
//     01 00 00 00                         one argument:
//     0a 00 00 00  00                     a text, not null
//     04 00 00 00 68 00 69 00             4 bytes: "hi"
//     ff ff ff ff  ff ff ff ff            no reply is wanted, no property is meant
const QDataStream::ByteOrder kFrameByteOrder = QDataStream::LittleEndian;
