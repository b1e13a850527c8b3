#include "remote/spectrummessage.h"

#include <clocale>
#include <cstring>
#include <limits>
#include <QFile>
#include <QLocale>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>
#include <QVector>

namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

QString message(double rms, double peak, double dynamic, const QVector<float> &bars)
{
    return spectrumMessage(rms, peak, dynamic, bars.constData(), bars.size());
}

/// The message built the plain way, for bars within the range of an integer.
QString plainMessage(double rms, double peak, double dynamic, const QVector<float> &bars)
{
    QString text = QStringLiteral("SoundSpectrum");
    for (const double level : {rms, peak, dynamic})
        text += QStringLiteral("/&+&/") + QString::number(level * 400.0, 'g', 6);
    for (const float bar : bars)
        text +=
            QStringLiteral("/&+&/") + QString::number(static_cast<int>(bar * 400.0F), 10).left(4);
    return text;
}

QString barField(float bar)
{
    return message(0, 0, 0, {bar}).section(QStringLiteral("/&+&/"), 4);
}

QString levelField(double level)
{
    return message(level, 0, 0, {}).section(QStringLiteral("/&+&/"), 1, 1);
}

} // namespace

class SpectrumMessageTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void goldenExample();
    void defaultBarsSplitInto104Fields();
    void noBarsGiveFourFields();
    void barFields_data();
    void barFields();
    void levelFields_data();
    void levelFields();
    void commaDecimalLocaleChangesNothing();
    void equalsThePlainMessageForRandomValues();
    void equalsThePlainMessageForTies();
};

void SpectrumMessageTest::goldenExample()
{
    QCOMPARE(message(0.123456, 0.28125, 0.008125, {0.0F, 0.03F, 0.2175F}),
             QStringLiteral("SoundSpectrum/&+&/49.3824/&+&/112.5/&+&/3.25/&+&/0/&+&/12/&+&/87"));
}

void SpectrumMessageTest::defaultBarsSplitInto104Fields()
{
    const QString text = message(0.25, 0.5, 0.125, QVector<float>(100, 0.5F));
    const QStringList fields = text.split(QStringLiteral("/&+&/"));
    QCOMPARE(fields.size(), 104);
    QCOMPARE(fields.first(), QStringLiteral("SoundSpectrum"));
    QCOMPARE(fields.at(1), QStringLiteral("100"));
    QCOMPARE(fields.at(2), QStringLiteral("200"));
    QCOMPARE(fields.at(3), QStringLiteral("50"));
    QCOMPARE(fields.mid(4), QVector<QString>(100, QStringLiteral("200")).toList());
}

void SpectrumMessageTest::noBarsGiveFourFields()
{
    QCOMPARE(message(0, 0, 0, {}), QStringLiteral("SoundSpectrum/&+&/0/&+&/0/&+&/0"));
    QCOMPARE(spectrumMessage(0, 0, 0, nullptr, -1), message(0, 0, 0, {}));
}

void SpectrumMessageTest::barFields_data()
{
    QTest::addColumn<float>("bar");
    QTest::addColumn<QString>("text");
    QTest::newRow("30.0 is 1200") << 30.0F << QStringLiteral("1200");
    QTest::newRow("100.0 (40000) is 4000") << 100.0F << QStringLiteral("4000");
    QTest::newRow("0.0049 (1.96) is 1") << 0.0049F << QStringLiteral("1");
    QTest::newRow("30.8625 (12345) is 1234") << 30.8625F << QStringLiteral("1234");
    QTest::newRow("-3.085 (-1234) is -123") << -3.085F << QStringLiteral("-123");
    QTest::newRow("a small negative is 0") << -0.0024F << QStringLiteral("0");
    QTest::newRow("9999") << 24.9975F << QStringLiteral("9999");
    QTest::newRow("-0.0") << -0.0F << QStringLiteral("0");
    QTest::newRow("denormal") << std::numeric_limits<float>::denorm_min() << QStringLiteral("0");
    QTest::newRow("nan") << std::numeric_limits<float>::quiet_NaN() << QStringLiteral("0");
    QTest::newRow("inf") << kInfinity << QStringLiteral("2147");
    QTest::newRow("-inf") << -kInfinity << QStringLiteral("-214");
    QTest::newRow("largest float") << std::numeric_limits<float>::max() << QStringLiteral("2147");
    QTest::newRow("lowest float") << std::numeric_limits<float>::lowest() << QStringLiteral("-214");
    QTest::newRow("2^31") << 5368709.12F << QStringLiteral("2147");
    QTest::newRow("-2^31") << -5368709.12F << QStringLiteral("-214");
    QTest::newRow("below 2^31") << 5368708.5F << QStringLiteral("2147");
}

void SpectrumMessageTest::barFields()
{
    QFETCH(float, bar);
    QFETCH(QString, text);
    QCOMPARE(barField(bar), text);
}

void SpectrumMessageTest::levelFields_data()
{
    QTest::addColumn<double>("level");
    QTest::addColumn<QString>("text");
    QTest::newRow("0") << 0.0 << QStringLiteral("0");
    QTest::newRow("0.5 is 200") << 0.5 << QStringLiteral("200");
    QTest::newRow("1e-07 is 4e-05") << 1e-07 << QStringLiteral("4e-05");
    QTest::newRow("huge") << 1e200 << QStringLiteral("4e+202");
    QTest::newRow("lowest") << std::numeric_limits<double>::lowest() << QStringLiteral("-inf");
    QTest::newRow("longest text") << -1.23456789e305 << QStringLiteral("-4.93827e+307");
    QTest::newRow("nan") << std::numeric_limits<double>::quiet_NaN() << QStringLiteral("nan");
    QTest::newRow("-nan") << -std::numeric_limits<double>::quiet_NaN() << QStringLiteral("nan");
    QTest::newRow("inf") << std::numeric_limits<double>::infinity() << QStringLiteral("inf");
}

void SpectrumMessageTest::levelFields()
{
    QFETCH(double, level);
    QFETCH(QString, text);
    QCOMPARE(levelField(level), text);
    QCOMPARE(levelField(level), QString::number(level * 400.0, 'g', 6));
}

void SpectrumMessageTest::commaDecimalLocaleChangesNothing()
{
    const QString expected = message(0.123456, 1234.5, 1e-07, {30.0F, 0.0049F});
    const QLocale before;
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    QCOMPARE(QLocale().decimalPoint(), QLatin1Char(','));
    const QString underQt = message(0.123456, 1234.5, 1e-07, {30.0F, 0.0049F});
    QLocale::setDefault(before);
    QCOMPARE(underQt, expected);
    QCOMPARE(expected,
             QStringLiteral("SoundSpectrum/&+&/49.3824/&+&/493800/&+&/4e-05/&+&/1200/&+&/1"));

    // The C library's: one that is installed, else one made here from the installed definitions.
    const QTemporaryDir folder;
    if (!std::setlocale(LC_ALL, "de_DE.UTF-8")) {
        QProcess localedef;
        localedef.start(QStringLiteral("localedef"),
                        {QStringLiteral("-i"), QStringLiteral("de_DE"), QStringLiteral("-f"),
                         QStringLiteral("UTF-8"), folder.filePath(QStringLiteral("de_DE.UTF-8"))});
        localedef.waitForFinished();
        qputenv("LOCPATH", QFile::encodeName(folder.path()));
    }
    std::setlocale(LC_ALL, "C");
    const QByteArray cBefore = std::setlocale(LC_ALL, nullptr);
    const char *chosen = nullptr;
    for (const char *name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "de-DE", "de_DE"}) {
        chosen = std::setlocale(LC_ALL, name);
        if (chosen)
            break;
    }
    const bool comma = chosen && std::strcmp(std::localeconv()->decimal_point, ",") == 0;
    const QString underC = message(0.123456, 1234.5, 1e-07, {30.0F, 0.0049F});
    std::setlocale(LC_ALL, cBefore.constData());
    QCOMPARE(underC, expected);
    QVERIFY2(comma, "no comma-decimal locale is installed for the C library");
}

void SpectrumMessageTest::equalsThePlainMessageForRandomValues()
{
    QRandomGenerator random(20240607);
    for (int i = 0; i < 20000; ++i) {
        QVector<float> bars(static_cast<int>(random.bounded(12)));
        for (float &bar : bars)
            bar = static_cast<float>((random.generateDouble() - 0.3) * (i % 5 ? 1.2 : 200.0));
        const double rms = random.generateDouble();
        const double peak = random.generateDouble() * 1e-6;
        const double dynamic = (random.generateDouble() - 0.5) * 1e9;
        QCOMPARE(message(rms, peak, dynamic, bars), plainMessage(rms, peak, dynamic, bars));
    }
}

void SpectrumMessageTest::equalsThePlainMessageForTies()
{
    // 872140.5 lies exactly between two numbers of six digits, 0.3 × 400 next to a short one.
    QCOMPARE(levelField(872140.5 / 400.0), QStringLiteral("872141"));
    int ties = 0;
    for (int i = 0; i < 4000; ++i) {
        const double value = 100000.5 + i * 225;
        ties += static_cast<int>(value / 400.0 * 400.0 == value);
        QCOMPARE(levelField(value / 400.0), QString::number(value / 400.0 * 400.0, 'g', 6));
        QCOMPARE(levelField(-i / 16384.0), QString::number(-i / 16384.0 * 400.0, 'g', 6));
    }
    QVERIFY(ties > 1000);
}

QTEST_GUILESS_MAIN(SpectrumMessageTest)
#include "tst_spectrummessage.moc"
