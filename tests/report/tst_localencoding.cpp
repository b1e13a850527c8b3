// The executable's path in a report where the local encoding is not UTF-8.
#include "report/errorreport.h"

#include <cstdio>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>

namespace {
const QString kPrintReport = QStringLiteral("--print-report");
} // namespace

class TestLocalEncoding : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void pathOutsideTheLocalEncodingStaysGarbled();
};

// The program itself, in a folder whose name the local encoding writes differently than UTF-8.
void TestLocalEncoding::pathOutsideTheLocalEncodingStaysGarbled()
{
    const QTemporaryDir folder;
    const QString named = folder.filePath(QStringLiteral("声音"));
    QVERIFY(QDir().mkpath(named));
    const QString program = named + QStringLiteral("/program");
    QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), program));

    QProcess process;
    process.start(program, {kPrintReport});
    QVERIFY(process.waitForFinished());
    const QString report =
        QString::fromUtf8(process.readAllStandardOutput()).remove(QLatin1Char('\r'));

    const QByteArray local = QTextCodec::codecForName("GB18030")->fromUnicode(program);
    const QString garbled = QString::fromUtf8(local);
    QVERIFY(garbled != program);
    QVERIFY(report.contains(QStringLiteral("\n  Executable: ") + garbled + QLatin1Char('\n')));
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    if (QCoreApplication::arguments().contains(kPrintReport)) {
        QCoreApplication::applicationFilePath(); // read while the encoding is the system's
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("GB18030"));
        std::fputs(buildErrorReport({}, {}).toUtf8().constData(), stdout);
        return 0;
    }
    TestLocalEncoding test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_localencoding.moc"
