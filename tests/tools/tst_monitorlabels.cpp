// The texts of the monitor's window in every size, and its colours when the palette changes.
#include "tests/support/privatefolder.h"
#include "tools/monitor/levelmeters.h"
#include "tools/monitor/monitor.h"
#include "tools/monitor/monitorwindow.h"
#include "tools/monitor/spectrumplot.h"
#include "tools/monitor/statusline.h"
#include "tools/monitor/toplabels.h"

#include <memory>
#include <QAction>
#include <QApplication>
#include <QImage>
#include <QMessageBox>
#include <QTest>
#include <QTranslator>

namespace {

QPalette paletteOf(const QColor &ground, const QColor &text)
{
    QPalette palette;
    for (const auto role : {QPalette::Window, QPalette::Base, QPalette::Button})
        palette.setColor(role, ground);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(role, text);
    return palette;
}

/// What is wrong with the places of texts: one that touches another or is not inside.
QString flawOf(const QVector<QRect> &areas, const QRect &inside)
{
    for (int i = 0; i < areas.size(); ++i) {
        const QRect &area = areas.at(i);
        if (area.isEmpty() || !inside.contains(area))
            return QStringLiteral("label %1 is cut").arg(i);
        for (int j = 0; j < i; ++j) {
            if (areas.at(j).intersects(area))
                return QStringLiteral("labels %1 and %2 overlap").arg(j).arg(i);
        }
    }
    return {};
}

} // namespace

class MonitorLabelsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void labelsDoNotOverlap_data();
    void labelsDoNotOverlap();
    void theScaleIsNamedAboveTheBars();
    void topLabelsNeverTouch();
    void thePaletteIsFollowed();
    void everyKeyIsInTheMenuAndTheHelp();
    void picturesAreNeverOverwritten();
    void aPictureThatCannotBeSavedIsTold();
    void theStatusIsNeverCut();
    void shorterNumbersMoveNothing();
    void theSummarySaysWhereItIsLoudest();

private:
    std::unique_ptr<PrivateFolder> m_folder;
};

void MonitorLabelsTest::init()
{
    m_folder = std::make_unique<PrivateFolder>();
}

void MonitorLabelsTest::cleanup()
{
    m_folder.reset();
}

void MonitorLabelsTest::labelsDoNotOverlap_data()
{
    QTest::addColumn<int>("points");
    QTest::addColumn<QSize>("size"); // empty: the smallest
    QTest::addColumn<bool>("chinese");
    for (const int points : {7, 9, 12, 18, 30}) {
        for (const bool chinese : {false, true}) {
            const char *const language = chinese ? "Chinese" : "English";
            QTest::addRow("%s, %d points, smallest", language, points)
                << points << QSize() << chinese;
            QTest::addRow("%s, %d points, first size", language, points)
                << points << QSize(900, 480) << chinese;
            QTest::addRow("%s, %d points, large", language, points)
                << points << QSize(2560, 1440) << chinese;
        }
    }
}

void MonitorLabelsTest::labelsDoNotOverlap()
{
    QFETCH(int, points);
    QFETCH(QSize, size);
    QFETCH(bool, chinese);
    QTranslator translator;
    QVERIFY(translator.load(QStringLiteral(TONEWELL_TRANSLATION)));
    if (chinese) // until the translator is gone
        QVERIFY(QCoreApplication::installTranslator(&translator));
    Monitor monitor(nullptr);
    MonitorWindow window(&monitor);
    QFont font = window.font();
    font.setPointSize(points);
    window.setFont(font);
    window.resize(size.isValid() ? size.expandedTo(window.minimumSizeHint())
                                 : window.minimumSizeHint());
    window.grab(); // arranges
    auto *const plot = window.findChild<SpectrumPlot *>();
    auto *const meters = window.findChild<LevelMeters *>();
    QVERIFY(plot && meters);
    QCOMPARE(plot->summary().contains(QStringLiteral("fits music")), !chinese);
    const QVector<QRect> plotAreas = plot->labelAreas();
    QVERIFY2(plotAreas.size() >= 3 + 2, "the channels, 0 and both ends of the axis at least");
    QCOMPARE(flawOf(plotAreas, plot->rect()), QString());
    QVERIFY(meters->labelAreas().size() >= 2);
    QCOMPARE(flawOf(meters->labelAreas(), meters->rect()), QString());
    for (int i = 0; i < LevelMeters::kCount; ++i)
        QVERIFY(!meters->meterArea(i).isEmpty());
}

void MonitorLabelsTest::theScaleIsNamedAboveTheBars()
{
    SpectrumPlot plot;
    plot.resize(1200, 400);
    const QImage fitting = plot.grab().toImage();
    HeightScale scale;
    scale.toggle(0);
    plot.setScale(scale, scale.top(0));
    const QImage asSent = plot.grab().toImage();
    QVERIFY(fitting != asSent);
    // Only the row above the bars says something else.
    const int ratio = qRound(asSent.devicePixelRatio());
    const int edge = plot.plotArea().top();
    const QRect below(0, edge * ratio, 1200 * ratio, (400 - edge) * ratio);
    QCOMPARE(fitting.copy(below), asSent.copy(below));
}

void MonitorLabelsTest::topLabelsNeverTouch()
{
    const HeightScale scale;
    const auto measure = [](const QString &text) { return text.size() * 7; };
    int most = 0;
    for (int width = 0; width < 1500; ++width) {
        int free = 0;
        const QVector<TopLabel> labels = topLabels(scale, width, 10, measure);
        for (const TopLabel &label : labels) {
            QVERIFY(label.start >= free);
            free = label.start + label.width + 10;
            QVERIFY(label.start + label.width <= width);
        }
        QVERIFY(labels.size() >= most); // more room, never less to read
        most = labels.size();
    }
    QCOMPARE(most, 3);
}

void MonitorLabelsTest::thePaletteIsFollowed()
{
    Monitor monitor(nullptr);
    MonitorWindow window(&monitor);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    const QPalette before = QApplication::palette();
    for (const bool dark : {false, true, false}) {
        const QColor ground = dark ? QColor(0x202020) : QColor(0xf0f0f0);
        QApplication::setPalette(paletteOf(ground, dark ? Qt::white : Qt::black));
        QCoreApplication::processEvents();
        const QImage image = window.grab().toImage();
        int grounds = 0;
        int others = 0; // what would be left of the palette before
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const int lightness = image.pixelColor(x, y).lightness();
                (qAbs(lightness - ground.lightness()) < 8 ? grounds : others) += 1;
            }
        }
        QVERIFY2(grounds > 20 * others, qPrintable(QString::number(others)));
    }
    QApplication::setPalette(before);
}

void MonitorLabelsTest::everyKeyIsInTheMenuAndTheHelp()
{
    Monitor monitor(nullptr);
    MonitorWindow window(&monitor);
    QCOMPARE(window.contextMenuPolicy(), Qt::ActionsContextMenu);
    QStringList keys;
    QStringList texts;
    for (const QAction *const action : window.actions()) {
        for (const QKeySequence &key : action->shortcuts())
            keys.append(key.toString(QKeySequence::PortableText));
        if (!action->isSeparator())
            texts.append(action->text());
    }
    keys.sort();
    QCOMPARE(keys.join(QLatin1Char(' ')), QStringLiteral("+ - 0 = Ctrl+Q Ctrl+W Esc F1 F11 Q S"));

    for (QAction *const action : window.actions()) {
        if (action->shortcut() == QKeySequence(Qt::Key_F1))
            action->trigger();
    }
    auto *const box = window.findChild<QMessageBox *>();
    QVERIFY(box);
    for (const QString &text : texts)
        QVERIFY2(box->text().contains(text), qPrintable(text));
    QVERIFY(box->button(QMessageBox::Ok));
    QVERIFY2(box->text().contains(QStringLiteral("<b>+ or =</b>")), qPrintable(box->text()));
    QVERIFY2(box->text().contains(QStringLiteral("<b>Q or Ctrl+Q or Ctrl+W</b>")),
             qPrintable(box->text()));
}

void MonitorLabelsTest::picturesAreNeverOverwritten()
{
    Monitor monitor(nullptr);
    MonitorWindow window(&monitor);
    const QDir folder(m_folder->path());
    for (int i = 0; i < 3; ++i)
        window.savePictureIn(folder.path());
    const QStringList files = folder.entryList({QStringLiteral("spectrum-*.png")});
    QCOMPARE(files.size(), 3);
    for (const QString &file : files)
        QCOMPARE(QImage(folder.filePath(file)).size(),
                 window.size() * qRound(window.devicePixelRatioF()));
}

void MonitorLabelsTest::aPictureThatCannotBeSavedIsTold()
{
    Monitor monitor(nullptr);
    MonitorWindow window(&monitor);
    window.savePictureIn(QStringLiteral("/no/such/folder"));
    const QString said = window.findChild<StatusLine *>()->text();
    QVERIFY(said.contains(QStringLiteral("/no/such/folder/spectrum-")));
    QVERIFY(said.contains(QStringLiteral("No such file")));
}

void MonitorLabelsTest::theStatusIsNeverCut()
{
    Monitor monitor(nullptr);
    MonitorWindow window(&monitor);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    auto *const status = window.findChild<StatusLine *>();
    const int line = status->height();
    for (const bool smallest : {false, true}) {
        if (smallest)
            window.resize(window.minimumSizeHint());
        // A word that no line holds, and all that can be said at once.
        for (const QString &folder : {QStringLiteral("/no/") + QString(150, QLatin1Char('x')),
                                      QStringLiteral("/no/such folder").repeated(10)}) {
            window.savePictureIn(folder);
            QTRY_VERIFY(status->rect().contains(status->textArea()));
            QVERIFY(status->height() > line || !smallest);
            QVERIFY(window.rect().contains(status->geometry()));
        }
    }
}

void MonitorLabelsTest::shorterNumbersMoveNothing()
{
    StatusLine status;
    const QString text = QStringLiteral("newest 12 ms old");
    status.resize(status.fontMetrics().horizontalAdvance(text) - 1, 100);
    status.setText(text);
    const int two = status.sizeHint().height();
    status.setText(QStringLiteral("newest 9 ms old"));
    QCOMPARE(status.sizeHint().height(), two);
    status.setText(QStringLiteral("newest"));
    QVERIFY(status.sizeHint().height() < two);
    QVERIFY(status.sizeHint().height() >= status.textArea().height());
}

void MonitorLabelsTest::theSummarySaysWhereItIsLoudest()
{
    SpectrumPlot plot;
    QVector<int> bars(kBarCount, 0);
    bars[35] = 320; // 1015 Hz
    bars[56] = 150; // 455 Hz
    plot.setBars(bars);
    QCOMPARE(plot.summary(),
             QStringLiteral("highest on the left at 1015 Hz: 320, on the right at 455 Hz: 150; "
                            "height fits music: 400"));
    plot.setNotice(QStringLiteral("nothing is playing"));
    QCOMPARE(plot.summary(), QStringLiteral("nothing is playing; height fits music: 400"));
}

QTEST_MAIN(MonitorLabelsTest)
#include "tst_monitorlabels.moc"
