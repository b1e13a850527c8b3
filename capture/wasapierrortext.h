// Result codes of the audio API as text.
#pragma once

#include <windows.h>
#include <QString>

/// English description of a code for the error report.
QString wasapiErrorText(HRESULT hr);
