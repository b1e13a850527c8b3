// Gives the tests access to private members of the classes.
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
