// What the capture tests start from: two speakers and a microphone, and a controller on them.
#pragma once

#include "capture/audiocapture.h"
#include "platform/diagnosticlogpath.h"
#include "report/deliverreport.h"
#include "tests/support/fakeaudio.h"
#include "tests/support/messagelog.h"
#include "tests/support/taskmemory.h"
#include "tests/support/text.h"
#include "tests/support/waiting.h"

#include <functional>
#include <memory>
#include <QtTest>
#include <thread>

inline const QString kFollow = QStringLiteral("默认输出设备");
inline const QString kIdA = QStringLiteral("{0.0.0}.a");
inline const QString kIdB = QStringLiteral("{0.0.0}.b");
inline const QString kIdMic = QStringLiteral("{0.0.1}.mic");

/// Takes the reports of the process instead of the dialog.
class ReportTaker {
public:
    ReportTaker() { setReportSink(&ReportTaker::take); }
    static QStringList reports()
    {
        const std::lock_guard<std::mutex> lock(s_mutex);
        return s_reports;
    }

private:
    static void take(const QString &report)
    {
        const std::lock_guard<std::mutex> lock(s_mutex);
        s_reports.append(report);
    }

    static inline std::mutex s_mutex;
    static inline QStringList s_reports;
};

/// Switches the capture diagnostic log on, with no file yet, while it lives.
class DiagnosticLog {
public:
    DiagnosticLog()
    {
        qputenv("XDG_STATE_HOME", QFile::encodeName(QDir::tempPath() + QStringLiteral("/state")));
        QFile::remove(diagnosticLogPath());
        AudioCapture::setDiagnosticLogEnabled(true);
    }
    ~DiagnosticLog() { AudioCapture::setDiagnosticLogEnabled(false); }
    DiagnosticLog(const DiagnosticLog &) = delete;
    DiagnosticLog &operator=(const DiagnosticLog &) = delete;

    /// The messages, without their times.
    static QStringList lines()
    {
        QFile file(diagnosticLogPath());
        if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
            return {};
        QStringList result = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
        result.removeLast();
        for (QString &line : result)
            line.remove(0, 15); // "[HH:mm:ss.zzz] "
        return result;
    }
};

/// "Speakers" (the default) and "Headset" with endless float packets, and the microphone "Mic".
struct Scene {
    Scene()
    {
        audio.add(kIdA, QStringLiteral("Speakers"));
        audio.add(kIdB, QStringLiteral("Headset"));
        audio.add(kIdMic, QStringLiteral("Mic"), eCapture);
        audio.setDefault(kIdA);
    }

    AudioCapture &make()
    {
        capture = std::make_unique<AudioCapture>();
        return *capture;
    }
    AudioCapture &started()
    {
        make().startCapture();
        return *capture;
    }
    bool captures(const QString &id)
    {
        return waitUntil([this, id] { return audio.capturedDevice() == id; });
    }
    /// Ends the controller; what is left behind, empty when nothing is.
    QStringList leftovers()
    {
        capture.reset();
        QStringList result = audio.problems();
        if (taskBlocksAlive() != 0)
            result.append(QStringLiteral("%1 task memory blocks").arg(taskBlocksAlive()));
        return result;
    }

    ReportTaker reports;
    MessageLog log;
    FakeAudio audio;
    std::unique_ptr<AudioCapture> capture;
};

/// Milliseconds from the first line of the one text to the first line of the other; -1 without
/// them.
inline qint64 between(const MessageLog &log, const QString &from, const QString &to)
{
    qint64 fromMs = -1;
    qint64 toMs = -1;
    for (const MessageLog::Line &line : log.lines()) {
        if (fromMs < 0 && line.text == from)
            fromMs = line.atMs;
        if (toMs < 0 && line.text == to)
            toMs = line.atMs;
    }
    return fromMs < 0 || toMs < 0 ? -1 : toMs - fromMs;
}

/// Runs a function on a thread that Qt did not start, as the audio system's callbacks do; events of
/// this thread go on meanwhile.
inline void onForeignThread(const std::function<void()> &function)
{
    std::atomic<bool> done {false};
    VirtualThread thread([&] {
        function();
        done = true;
    });
    while (!waitUntil([&] { return done.load(); })) { }
    thread.join();
}

#define VERIFY_NOTHING_LEFT(scene) QCOMPARE((scene).leftovers(), QStringList())
