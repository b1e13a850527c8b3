// What the terminal is written and what is typed there: columns, lines, keys.
#include "tools/monitor/terminalkeys.h"
#include "tools/monitor/terminaltext.h"

#include <QTest>

class TerminalTextTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void chineseTakesTwoColumns();
    void textsAreCutAndFilled();
    void linesAreDividedBetweenWords();
    void keysComeOneByOne();
    void escapeIsAKeyWhenNothingFollows();
    void arrowsAreNoEscape_data();
    void arrowsAreNoEscape();
};

void TerminalTextTest::chineseTakesTwoColumns()
{
    QCOMPARE(terminalColumns(QStringLiteral("abc ▁█│")), 7);
    QCOMPARE(terminalColumns(QStringLiteral("左声道：")), 8);
    QCOMPARE(terminalColumns(QString::fromUtf8("a\xf0\xa0\x80\x80")), 3); // beyond 16 bits
    QCOMPARE(terminalColumns(QString()), 0);
}

void TerminalTextTest::textsAreCutAndFilled()
{
    QCOMPARE(fittedToColumns(QStringLiteral("abc"), 5), QStringLiteral("abc  "));
    QCOMPARE(fittedToColumns(QStringLiteral("abcdef"), 5), QStringLiteral("abcde"));
    // Half of a character is none.
    QCOMPARE(fittedToColumns(QStringLiteral("左右"), 3), QStringLiteral("左 "));
    QCOMPARE(fittedToColumns(QStringLiteral("左右"), 0), QString());
}

void TerminalTextTest::linesAreDividedBetweenWords()
{
    QCOMPARE(wrappedToColumns(QStringLiteral("one two three"), 8),
             (QStringList {QStringLiteral("one two"), QStringLiteral("three")}));
    QCOMPARE(wrappedToColumns(QStringLiteral("one two"), 7),
             QStringList {QStringLiteral("one two")});
    QCOMPARE(wrappedToColumns(QStringLiteral("abcdefgh"), 3),
             (QStringList {QStringLiteral("abc"), QStringLiteral("def"), QStringLiteral("gh")}));
    QCOMPARE(wrappedToColumns(QStringLiteral("没有输出设备"), 6),
             (QStringList {QStringLiteral("没有输"), QStringLiteral("出设备")}));
    QCOMPARE(wrappedToColumns(QString(), 6), QStringList());
}

void TerminalTextTest::keysComeOneByOne()
{
    TerminalKeys keys;
    QCOMPARE(keys.take("q+"), QByteArray("q+"));
    QCOMPARE(keys.take({}), QByteArray());
}

void TerminalTextTest::escapeIsAKeyWhenNothingFollows()
{
    TerminalKeys keys;
    QCOMPARE(keys.take("\x1b"), QByteArray());
    QCOMPARE(keys.take({}), QByteArray("\x1b"));
    QCOMPARE(keys.take({}), QByteArray());
}

void TerminalTextTest::arrowsAreNoEscape_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("arrow") << QByteArray("\x1b[A");
    QTest::newRow("arrow of a keypad") << QByteArray("\x1bOA");
    QTest::newRow("F5") << QByteArray("\x1b[15~");
    QTest::newRow("with control") << QByteArray("\x1b[1;5C");
    QTest::newRow("Alt and q") << QByteArray("\x1bq");
}

void TerminalTextTest::arrowsAreNoEscape()
{
    QFETCH(QByteArray, bytes);
    TerminalKeys keys;
    QCOMPARE(keys.take(bytes), QByteArray());
    QCOMPARE(keys.take({}), QByteArray());
    QCOMPARE(keys.take("q"), QByteArray("q"));
    // The same when a slow line divides it.
    for (const char byte : bytes)
        QCOMPARE(keys.take(QByteArray(1, byte)), QByteArray());
    QCOMPARE(keys.take({}), QByteArray());
    QCOMPARE(keys.take("q"), QByteArray("q"));
}

QTEST_APPLESS_MAIN(TerminalTextTest)
#include "tst_terminaltext.moc"
