// What the tests of the engine start from.
#pragma once

#include "platform/deviceenumerator.h"
#include "report/deliverreport.h"
#include "tests/spectrum/enginepeer.h"
#include "tests/spectrum/workerthread.h"

#include <atomic>
#include <functional>
#include <QObject>

/// A test of engines that find no audio system, whose reports nobody sees.
class SpecEngineTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        setDeviceEnumeratorFactory([](IMMDeviceEnumerator **) -> HRESULT { return E_FAIL; });
        setReportSink([](const QString &) {});
    }
    void cleanupTestCase()
    {
        setReportSink(nullptr);
        setDeviceEnumeratorFactory(nullptr);
    }
};

/// How many spectra the worker makes of what `action` hands it.
inline int calculations(const SpecEnginePeer &peer, const std::function<void()> &action)
{
    std::atomic<int> count {0};
    SpectrumAnalyserThread *worker = SpectrumAnalyserPeer::worker(peer.analyser());
    const auto connection = QObject::connect(worker, &SpectrumAnalyserThread::calculationComplete,
                                             worker, [&count] { ++count; });
    action();
    runThere(worker, [] {}); // what was handed over before has been calculated now
    QObject::disconnect(connection);
    return count;
}
