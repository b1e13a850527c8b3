// The stack trace's text, for a stack that is known and for a dbghelp.dll that lacks something.
#include <QProcess>
#include <QtTest>

class TestStackTrace : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void trace_data();
    void trace();
    void loadedOnce_data();
    void loadedOnce();
    void crashReportWithoutDbghelp();
};

namespace {

QString run(const QString &way)
{
    QProcess process;
    process.start(QStringLiteral(STACK_TRACE_PROGRAM), {way});
    process.waitForFinished();
    return QString::fromUtf8(process.readAllStandardOutput()).remove(QLatin1Char('\r'));
}

QString frames(int count)
{
    QString text;
    for (int i = 0; i < count; ++i) {
        const QString module = i == 1 || i == 2 ? QStringLiteral("[unknown]")
            : i == 3                            ? QString(32, QLatin1Char('x'))
            : i == 4                            ? QStringLiteral("café")
                                                : QStringLiteral("module");
        text += QStringLiteral("  #%1%2 0x%3 (%4)\n")
                    .arg(i < 10 ? QStringLiteral(" ") : QString(), QString::number(i),
                         QStringLiteral("%1").arg(0x1000 + i, 16, 16, QLatin1Char('0')), module);
    }
    return text;
}

} // namespace

void TestStackTrace::trace_data()
{
    QTest::addColumn<QString>("way");
    QTest::addColumn<QString>("text");
    QTest::newRow("frames 5 and 12 line up") << "thirteen" << frames(13);
    QTest::newRow("at most 32 frames") << "endless" << frames(32);
    QTest::newRow("stops at program counter 0") << "zero" << frames(2);
    QTest::newRow("without dbghelp.dll") << "no-library"
                                         << "  [dbghelp.dll not available for stack trace]\n";
    QTest::newRow("without SymInitializeW") << "no-symbols"
                                            << "  [Symbol functions not available]\n";
    QTest::newRow("failed SymInitializeW") << "failed-symbols"
                                           << "  [Failed to initialize symbols]\n";
    QTest::newRow("without StackWalk64") << "no-walk"
                                         << "  [No stack frames captured]\n";
    QTest::newRow("failing StackWalk64") << "failing-walk"
                                         << "  [No stack frames captured]\n";
    QString nameless = frames(32);
    nameless.replace(QRegularExpression(QStringLiteral("\\(.*\\)")), QStringLiteral("([unknown])"));
    QTest::newRow("without SymGetModuleInfo64") << "no-modules" << nameless;
}

void TestStackTrace::trace()
{
    QFETCH(QString, way);
    QFETCH(QString, text);
    const QStringList parts = run(way).split(QStringLiteral("again\n"));
    QCOMPARE(parts.size(), 2);
    QCOMPARE(parts.first(), text);
    // A later call says the same.
    QCOMPARE(parts.last().section(QStringLiteral("loads"), 0, 0), text);
}

void TestStackTrace::loadedOnce_data()
{
    QTest::addColumn<QString>("way");
    QTest::addColumn<int>("resolves"); // one for each name that is asked for
    QTest::addColumn<int>("initializations");
    QTest::newRow("success") << "endless" << 3 << 1;
    QTest::newRow("no library") << "no-library" << 0 << 0;
    QTest::newRow("no SymInitializeW") << "no-symbols" << 2 << 0;
    QTest::newRow("no SymGetModuleInfo64") << "no-modules" << 3 << 1;
    QTest::newRow("no StackWalk64") << "no-walk" << 3 << 1;
    QTest::newRow("failure is remembered") << "failed-symbols" << 2 << 1;
}

void TestStackTrace::loadedOnce()
{
    QFETCH(QString, way);
    QFETCH(int, resolves);
    QFETCH(int, initializations);
    const QString end = QStringLiteral("loads 1 resolves %1 initializations %2\n")
                            .arg(resolves)
                            .arg(initializations);
    QVERIFY2(run(way).endsWith(end), qPrintable(run(way)));
}

void TestStackTrace::crashReportWithoutDbghelp()
{
    QProcess process;
    process.start(QStringLiteral(NO_DBGHELP_PROGRAM), QStringList());
    process.waitForFinished();
    QVERIFY(process.readAllStandardOutput()
                .replace("\r\n", "\n")
                .endsWith("\n[Stack Trace]\n  [dbghelp.dll not available for stack trace]\n"));
}

QTEST_GUILESS_MAIN(TestStackTrace)
#include "tst_stacktrace.moc"
