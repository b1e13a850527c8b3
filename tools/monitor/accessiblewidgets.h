#pragma once

/// Lets screen readers and their like see MonitorWindow as a window, each of the LevelMeters as a
/// value with its name, and SpectrumPlot as a chart with a summary. Call it once, before the first
/// window.
void installAccessibleWidgets();
