// Result codes of the audio API as text.
#pragma once

#include <windows.h>
#include <QString>

/// The code in base 16, lower case; a failure code prints as its 64-bit two's complement
/// (ffffffff88890004).
QString hexCode(HRESULT hr);

/// English description of a code for the error report.
QString wasapiErrorText(HRESULT hr);
