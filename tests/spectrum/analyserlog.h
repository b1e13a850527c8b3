// What the analyser logs.
#pragma once

#include <QString>

// The logged texts are GBK bytes that the debug stream takes for UTF-8.
inline const QString kInvalidParameters =
    QString::fromUtf8("[SpectrumAnalyser] \xCE\xDE\xD0\xA7\xB2\xCE\xCA\xFD\xA3\xAC\xBA\xF6"
                      "\xC2\xD4\xBC\xC6\xCB\xE3");
inline const QString kNotEnoughData = QString::fromUtf8(
    "[SpectrumAnalyser] \xCA\xFD\xBE\xDD\xB2\xBB\xD7\xE3\xA3\xAC\xCC\xF8\xB9\xFD");
