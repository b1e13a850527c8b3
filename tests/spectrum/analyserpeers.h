// Access for the tests to what the classes keep to themselves.
#pragma once

#include "spectrum/spectrumanalyser.h"
#include "spectrum/spectrumanalyserthread.h"

class SpectrumAnalyserThreadPeer {
public:
    static const std::vector<float> &window(const SpectrumAnalyserThread &worker)
    {
        return worker.m_window;
    }
};

class SpectrumAnalyserPeer {
public:
    static SpectrumAnalyserThread *worker(const SpectrumAnalyser &analyser)
    {
        return analyser.m_worker;
    }
    static int state(const SpectrumAnalyser &analyser) { return analyser.m_state; }
};
