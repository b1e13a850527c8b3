// The sink in a running application: the dialog comes one turn of the event loop later.
#include "report/deliverreport.h"
#include "report/errorreportdialog.h"

#include <QApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QTimer>
#include <QtTest>

namespace {

const QString kReport = QStringLiteral("first line\n第二行\n");

ErrorReportDialog *openDialog()
{
    return qobject_cast<ErrorReportDialog *>(QApplication::activeModalWidget());
}

struct Ended {
    bool inTime;
    int code;
    QString errors;
};

// This program, told to quit while the dialog is open.
Ended runToQuit()
{
    QProcess process;
    // Where the dialog cannot be seen.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("minimal"));
    process.setProcessEnvironment(environment);
    process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--quit")});
    const bool inTime = process.waitForFinished(10000);
    return {inTime && process.exitStatus() == QProcess::NormalExit, process.exitCode(),
            QString::fromLocal8Bit(process.readAllStandardError()).remove(QLatin1Char('\r'))};
}

} // namespace

class TestDeliverReport : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void dialogOpensAfterTheNextTurn();
    void nothingIsWritten();
    void sinkCanBeReplaced();
    void quitEndsTheProgramWhileTheDialogIsOpen();
    void reportGoesToStandardErrorOnce();

private:
    QTemporaryDir m_folder;
};

void TestDeliverReport::init()
{
    QVERIFY(m_folder.isValid());
    QVERIFY(QDir::setCurrent(m_folder.path()));
}

void TestDeliverReport::dialogOpensAfterTheNextTurn()
{
    deliverReport(kReport);
    QVERIFY(!openDialog());
    QString shown;
    QTimer::singleShot(0, this, [&shown] {
        ErrorReportDialog *const dialog = openDialog();
        if (!dialog)
            return;
        shown = dialog->findChild<QTextEdit *>()->toPlainText();
        dialog->accept();
    });
    QCoreApplication::processEvents(); // runs the dialog to its end
    QCOMPARE(shown, kReport);
    QVERIFY(!openDialog());
    QVERIFY(QApplication::topLevelWidgets().isEmpty());
}

void TestDeliverReport::nothingIsWritten()
{
    deliverReport(kReport);
    bool opened = false;
    QTimer::singleShot(0, this, [&opened] {
        if (ErrorReportDialog *const dialog = openDialog()) {
            opened = true;
            dialog->accept();
        }
    });
    QCoreApplication::processEvents();
    QVERIFY(opened);
    QCOMPARE(QDir().entryList(QDir::Files), QStringList());
}

void TestDeliverReport::sinkCanBeReplaced()
{
    static QStringList reports;
    const ReportSink sink = [](const QString &report) { reports.append(report); };
    QVERIFY(setReportSink(sink) == nullptr);
    deliverReport(kReport);
    QVERIFY(setReportSink(nullptr) == sink);
    QCOMPARE(reports, QStringList(kReport));
    QCoreApplication::processEvents();
    QVERIFY(!openDialog());
}

void TestDeliverReport::quitEndsTheProgramWhileTheDialogIsOpen()
{
    const Ended ended = runToQuit();
    QVERIFY(ended.inTime);
    QCOMPARE(ended.code, 7);
}

void TestDeliverReport::reportGoesToStandardErrorOnce()
{
    QCOMPARE(runToQuit().errors.count(QString::fromLocal8Bit(kReport.toLocal8Bit())), 1);
}

namespace {

// Quits while the dialog is open, as a request to end the program does.
int quitUnderTheDialog()
{
    deliverReport(kReport);
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [] {
        if (openDialog())
            QCoreApplication::exit(7);
    });
    timer.start(20);
    return QApplication::exec();
}

} // namespace

int main(int argc, char **argv)
{
    const QString mode = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    QApplication application(argc, argv);
    if (mode == QLatin1String("--quit"))
        return quitUnderTheDialog();
    TestDeliverReport test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_deliverreport.moc"
