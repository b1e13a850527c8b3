// Comparison of a report with the one that is kept in tests/report/golden.
#pragma once

#include <QString>

/// The report with everything that depends on the machine or the run replaced: times, paths,
/// addresses, registers, thread, memory, processors, display, Qt version and all frames of the
/// stack but the innermost three.
QString masked(const QString &report);

/// Fails the running test when masked(report) is not the text of golden/<name>.txt. With
/// TONEWELL_UPDATE_GOLDEN set the file is written instead, and the test fails all the same.
void compareWithGolden(const QString &report, const QString &name);
