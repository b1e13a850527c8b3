#include "tests/report/crash/crashreport.h"

#include <QRegularExpression>
#include <QtTest>

QString waitForEnd(QProcess *process)
{
    if (process->waitForFinished(30000))
        return {};
    if (process->error() == QProcess::FailedToStart)
        return QStringLiteral("cannot be started: ") + process->errorString();
    if (process->state() == QProcess::NotRunning)
        return {}; // it had ended before the wait began
    process->kill();
    process->waitForFinished();
    return QStringLiteral("still running after thirty seconds");
}

void verifyThatNoProgramIsNoHang()
{
    QProcess process;
    process.start(QStringLiteral("/nowhere/program"), QStringList());
    const QString trouble = waitForEnd(&process);
    QVERIFY2(trouble.startsWith(QLatin1String("cannot be started: ")), qPrintable(trouble));
}

QString field(const QString &report, const QString &name)
{
    const QRegularExpression line(QStringLiteral("^  %1: +(.*)$").arg(name),
                                  QRegularExpression::MultilineOption);
    return line.match(report).captured(1);
}

void checkRegisters(const QString &report, const QString &instruction)
{
    QCOMPARE(instruction.size(), 16);
    const auto value = [&report](const char *name) {
        return field(report, QString::fromLatin1(name));
    };
    QCOMPARE(value("RIP"), QStringLiteral("0x") + instruction);
    QVERIFY(
        value("Exception Message").endsWith(QStringLiteral("(Address: 0x%1)").arg(instruction)));
    QCOMPARE(value("RAX"), QStringLiteral("0x0000000000000000"));
    QCOMPARE(value("RCX"), QStringLiteral("0x0000000000000000"));
    QCOMPARE(value("RBX"), QStringLiteral("0x1111111111111111"));
    QCOMPARE(value("RDX"), QStringLiteral("0x2222222222222222"));
    for (int number = 8; number <= 15; ++number) {
        const QString digits(16, QString::number(number, 16).at(0));
        QCOMPARE(field(report, QStringLiteral("R%1").arg(number)), QStringLiteral("0x") + digits);
    }
    QCOMPARE(value("RSP"), value("RSI"));
    QCOMPARE(value("RBP"), value("RDI"));
    QVERIFY(value("RSP") != QStringLiteral("0x0000000000000000"));
}

void addGoldenRows()
{
    QTest::addColumn<QString>("kind");
    QTest::newRow("access-violation") << QStringLiteral("null-read");
    QTest::newRow("terminate") << QStringLiteral("noexcept");
}
