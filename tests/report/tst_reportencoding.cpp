// How a report leaves the program: on standard error in the encoding of the user's locale, in a
// file as UTF-8, with the line ends of the host in both. Run with a way as its argument, this
// program is one whose locale is Latin-1 and that prints or writes a report in that way.
#include "report/crashhandlers.h"
#include "report/deliverreport.h"
#include "tests/support/text.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>
#include <QTimer>

namespace {

const QString kName = QStringLiteral("Café 默认");
const QByteArray kLatin1Name("Caf\xe9 ??");

struct Output {
    bool ended = false;
    QByteArray errors; // line ends are \n
    QList<QByteArray> files;
};

Output run(const QString &way)
{
    const QTemporaryDir folder;
    QProcess process;
    process.setWorkingDirectory(folder.path());
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("minimal")); // no dialog
    process.setProcessEnvironment(environment);
    process.start(QCoreApplication::applicationFilePath(), {way});
    Output output;
    output.ended = process.waitForFinished(30000);
    output.errors = process.readAllStandardError().replace("\r\n", "\n");
    const QFileInfoList files = QDir(folder.path()).entryInfoList(QDir::Files);
    for (const QFileInfo &info : files) {
        QFile file(info.filePath());
        if (file.open(QIODevice::ReadOnly))
            output.files.append(file.readAll());
    }
    return output;
}

} // namespace

class TestReportEncoding : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void crash_data();
    void crash();
    void dialogThatCannotBeSeen();
};

void TestReportEncoding::crash_data()
{
    QTest::addColumn<QString>("way");
    QTest::newRow("fault") << QStringLiteral("--fault");
    QTest::newRow("terminate") << QStringLiteral("--terminate");
}

void TestReportEncoding::crash()
{
    QFETCH(QString, way);
    const Output output = run(way);
    QVERIFY(output.ended);
    QVERIFY2(output.errors.contains("\n  App Name: " + kLatin1Name + '\n'),
             output.errors.constData());
    // The file has the same text, in its own encoding, and all of the name.
    QString report = QString::fromLatin1(output.errors);
    report.replace(QStringLiteral("Café ??"), kName);
    QVERIFY(report.startsWith(QLatin1String("Program crash:\n=====")));
    report = report.mid(15).chopped(1);
    QCOMPARE(output.files.size(), 1);
    QCOMPARE(output.files.first(), textFile(report));
}

void TestReportEncoding::dialogThatCannotBeSeen()
{
    const Output output = run(QStringLiteral("--dialog"));
    QVERIFY(output.ended);
    QCOMPARE(output.errors, kLatin1Name + "\n\n");
    QVERIFY(output.files.isEmpty());
}

namespace {

int printDialog(int argc, char **argv)
{
    QApplication application(argc, argv);
    deliverReport(kName + QLatin1Char('\n'));
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [] {
        if (QApplication::activeModalWidget())
            QCoreApplication::quit();
    });
    timer.start(20);
    return QApplication::exec();
}

int reportAs(const QByteArray &way, int argc, char **argv)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
    if (way == "--dialog")
        return printDialog(argc, argv);
    QCoreApplication::setApplicationName(kName);
    if (way == "--terminate")
        terminateHandler();
    EXCEPTION_RECORD record {};
    record.ExceptionCode = 0xC000001DU;
    EXCEPTION_POINTERS pointers {&record, nullptr};
    return static_cast<int>(crashFilter(&pointers));
}

} // namespace

int main(int argc, char **argv)
{
    const QByteArray way(argc > 1 ? argv[1] : "");
    if (way == "--fault" || way == "--terminate" || way == "--dialog")
        return reportAs(way, argc, argv);
    QCoreApplication application(argc, argv);
    TestReportEncoding test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_reportencoding.moc"
