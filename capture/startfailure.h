// The report of a start that failed.
#pragma once

#include <windows.h>
#include <mmreg.h>
#include <QString>

/// The controller's state for the report. Of the pointers the report tells only whether they are
/// null; it reads the format.
struct StartState {
    QString wantedDevice; ///< display text
    QString pendingDeviceId;
    bool ready = false;
    const void *enumerator = nullptr;
    const void *device = nullptr;
    const void *client = nullptr;
    const WAVEFORMATEX *format = nullptr;
};

/// The error report for a failure code, without the controller's state. Asks the audio system for
/// its own part, which takes its time.
QString startFailureReport(HRESULT hr);

/// The section "[Device Format Debug Info]" that ends the report.
QString deviceFormatDebugInfo(const StartState &state);

/// True for the first call of the process: one report is handed over, whatever fails after it.
/// Callable from any thread.
bool claimOnlyReport();
