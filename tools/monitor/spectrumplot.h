#pragma once

#include "tools/monitor/heightscale.h"
#include "tools/monitor/layeredwidget.h"
#include "tools/monitor/spectrumreading.h"

#include <QVector>

/// The 100 bars, the left channel's to the left of 0 Hz and the right one's to the right, above an
/// axis of true frequencies in Hz.
class SpectrumPlot : public LayeredWidget {
    Q_OBJECT

public:
    explicit SpectrumPlot(QWidget *parent = nullptr);

    /// kBarCount heights; what is above the scale's top is drawn as high as that. Only what is
    /// different is painted.
    void setBars(const QVector<int> &bars);

    /// The scale of the heights, and which height is at the top now.
    void setScale(const HeightScale &scale, double top);

    /// A text over the bars; empty: none.
    void setNotice(const QString &notice);

    /// What the bars show, for those who cannot see them: the notice, or where each channel is
    /// highest; and the scale.
    QString summary() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

    /// Where the bars are, and one bar's place from top to bottom.
    QRect plotArea() const { return m_area; }
    QRect barArea(int bar) const;
    /// The places of all texts except the notice.
    QVector<QRect> labelAreas() const;
    /// Where a frequency is on the axis: Hz, negative for the left channel.
    int positionOf(int frequency) const;

protected:
    void arrange() override;
    void paintLayer(QPainter *painter, Layer layer) override;
    void paintEvent(QPaintEvent *event) override;

private:
    struct Label {
        QRect area;
        QString text;
        QPalette::ColorRole ground; ///< Base on the bars' ground, else Window
        double strength; ///< of the text's colour against that ground, 0 to 1
    };
    struct Line {
        QRect area;
        double strength;
    };

    void arrangeTop();
    void arrangeFrequencies();
    void arrangeHeights();
    bool addLabel(const Label &label); ///< false where it would touch another one
    QSize textSize(const QString &text) const;
    void paintAxis(QPainter *painter) const;
    void paintNotice(QPainter *painter) const;
    int heightOf(int value) const;
    /// Draws a bar's change into the picture. Returns the change's place, which may be empty.
    QRect setHeight(QPainter *painter, int bar, int height);
    QRect cellsAround(const QRect &part) const; ///< the smallest cells that hold it

    QRect m_area;
    QVector<QRect> m_columns; ///< each bar's place with the gap behind it
    QVector<int> m_bars; ///< as they were set
    QVector<int> m_heights; ///< the same in pixels
    QString m_notice;
    QVector<Label> m_labels;
    QVector<Line> m_lines;
    HeightScale m_scale;
    double m_top = kFullScale;
};
