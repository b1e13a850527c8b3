#include "tests/report/masked.h"

#include <QFile>
#include <QRegularExpression>
#include <QtTest>

QString masked(const QString &report)
{
    const struct {
        const char *pattern;
        const char *replacement;
    } rules[] = {
        {"^(\\[Report Time\\]) \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d$", "\\1 <time>"},
        {"^(  Executable): (?:[A-Z]:)?/.+$", "\\1: <path>"},
        {"^(  Windows Version): \\d+\\.\\d+ \\(Build \\d+\\).*$", "\\1: <version>"},
        {"^(  Service Pack): \\d+\\.\\d+$", "\\1: <number>"},
        {"^  Audiosrv Service(?: State)?: .*\\n(?:  Service Type: .*\\n)?  AudioEndpointBuilder "
         ".*$",
         "  <services>"},
        {"^(  Build Date): [A-Z][a-z]{2} [ \\d]\\d \\d{4} \\d\\d:\\d\\d:\\d\\d$", "\\1: <date>"},
        {"^(  Processor Cores|  Ideal Thread Count): \\d+$", "\\1: <number>"},
        {"^(  Total Memory|  Available Memory): \\d+\\.\\d\\d GB$", "\\1: <size> GB"},
        {"^(  Memory Usage): \\d+%%$", "\\1: <share>%%"},
        {"^(  Screen Resolution): \\d+ x \\d+ @ \\d+Hz$", "\\1: <mode>"},
        {"^(  Qt Version): (?:5\\.15|6\\.\\d+)\\.\\d+$", "\\1: <version>"},
        {"^(  Current Thread ID): 0x[0-9a-f]{16}$", "\\1: 0x<thread>"},
        {"\\(Address: 0x[0-9a-f]{16}\\)", "(Address: 0x<address>)"},
        {"^(  R[A-Z0-9]{1,2}: +)0x[0-9a-f]{16}$", "\\10x<value>"},
        {"^(  #[ \\d]\\d) 0x[0-9a-f]{16} ", "\\1 0x<address> "},
    };
    QString text = report;
    for (const auto &rule : rules) {
        text.replace(
            QRegularExpression(QLatin1String(rule.pattern), QRegularExpression::MultilineOption),
            QLatin1String(rule.replacement));
    }
    // How deep the stack is beyond three frames is up to the libraries below.
    const QRegularExpression deeper(QStringLiteral("^  #(?: [3-9]|\\d\\d) 0x<address> .*\\n"),
                                    QRegularExpression::MultilineOption);
    return text.remove(deeper);
}

void compareWithGolden(const QString &report, const QString &name)
{
    const QString text = masked(report);
    QFile file(QStringLiteral(GOLDEN_FOLDER "/%1.txt").arg(name));
    if (qEnvironmentVariableIsSet("TONEWELL_UPDATE_GOLDEN")) {
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(text.toUtf8());
        QFAIL("golden report written; look at it and run again");
    }
    QVERIFY2(file.open(QIODevice::ReadOnly | QIODevice::Text), qPrintable(file.fileName()));
    const QString golden = QString::fromUtf8(file.readAll());
    if (text == golden)
        return;
    // Line by line, so that the first difference is what is printed.
    const QStringList lines = text.split(QLatin1Char('\n'));
    const QStringList expected = golden.split(QLatin1Char('\n'));
    for (int i = 0; i < lines.size() && i < expected.size(); ++i)
        QCOMPARE(lines.at(i), expected.at(i));
    QCOMPARE(lines.size(), expected.size());
}
