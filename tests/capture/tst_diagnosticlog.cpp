// The capture diagnostic log.
#include "capture/audiocapture.h"
#include "capture/diagnosticlog.h"
#include "platform/diagnosticlogpath.h"
#include "platform/qtgeneration.h"
#include "tests/support/text.h"

#include <QRegularExpression>
#include <QtTest>

class TestDiagnosticLog : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        qputenv("XDG_STATE_HOME", QFile::encodeName(m_folder.path()));
        QFile::remove(diagnosticLogPath());
    }
    void cleanup() { AudioCapture::setDiagnosticLogEnabled(false); }

    /// The first of all: nothing has touched the switch yet.
    void offAtFirstAndNoFileIsMade()
    {
        writeDiagnosticLog(QStringLiteral("nothing"));
        QVERIFY(!QFile::exists(diagnosticLogPath()));
    }

    void twoCallsGiveTwoLinesInOrder()
    {
        AudioCapture::setDiagnosticLogEnabled(true);
        writeDiagnosticLog(QStringLiteral("setCurrentDevice -> 默认输出设备"));
        QThread::msleep(20); // as coarse as a system clock may be
        writeDiagnosticLog(QStringLiteral("second"));
        const QStringList lines = content().split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), 3);
        static const QRegularExpression shape(
            QStringLiteral("^\\[(\\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d)\\] (.*)$"));
        const auto first = shape.match(lines.at(0));
        const auto second = shape.match(lines.at(1));
        QVERIFY(first.hasMatch() && second.hasMatch());
        QCOMPARE(first.captured(2), QStringLiteral("setCurrentDevice -> 默认输出设备"));
        QCOMPARE(second.captured(2), QStringLiteral("second"));
        QVERIFY(first.captured(1) != second.captured(1));
        QVERIFY(lines.at(2).isEmpty());
    }

    /// Whatever encoding the user's locale has.
    void linesAreUtf8AndEndAsTheHostsDo()
    {
        {
            const LocalEncoding encoding("ISO-8859-1");
            AudioCapture::setDiagnosticLogEnabled(true);
            writeDiagnosticLog(QStringLiteral("é 默认"));
        }
        QFile file(diagnosticLogPath());
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll().mid(14), textFile(QStringLiteral(" é 默认\n"))); // after the time
    }

    void existingFileIsAppendedTo()
    {
        QFile file(diagnosticLogPath());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("kept\n");
        file.close();
        AudioCapture::setDiagnosticLogEnabled(true);
        writeDiagnosticLog(QStringLiteral("added"));
        QVERIFY(content().startsWith(QLatin1String("kept\n[")));
        QVERIFY(content().endsWith(QLatin1String("] added\n")));
    }

    void unopenableFileIsIgnored()
    {
        QVERIFY(QDir().mkpath(diagnosticLogPath())); // a folder in the file's place
        AudioCapture::setDiagnosticLogEnabled(true);
        writeDiagnosticLog(QStringLiteral("lost"));
        QVERIFY(QFileInfo(diagnosticLogPath()).isDir());
        QVERIFY(QDir().rmdir(diagnosticLogPath()));
    }

private:
    static QString content()
    {
        QFile file(diagnosticLogPath());
        return file.open(QIODevice::ReadOnly | QIODevice::Text) ? QString::fromUtf8(file.readAll())
                                                                : QString();
    }

    QTemporaryDir m_folder;
};

QTEST_GUILESS_MAIN(TestDiagnosticLog)
#include "tst_diagnosticlog.moc"
