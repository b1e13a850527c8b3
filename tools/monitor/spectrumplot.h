#pragma once

#include "tools/monitor/layeredwidget.h"

#include <QVector>

/// The 100 bars, the left channel's to the left of 0 Hz and the right one's to the right, above an
/// axis of true frequencies in Hz.
class SpectrumPlot : public LayeredWidget {
    Q_OBJECT

public:
    explicit SpectrumPlot(QWidget *parent = nullptr);

    /// kBarCount heights, 0 to kFullScale; what is beyond is drawn as the nearest of these. Only
    /// what is different is painted.
    void setBars(const QVector<int> &bars);

    /// A text over the bars; empty: none.
    void setNotice(const QString &notice);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

    /// Where the bars are, and one bar's place from top to bottom.
    QRect plotArea() const { return m_area; }
    QRect barArea(int bar) const;
    /// Where a frequency is on the axis: Hz, negative for the left channel.
    int positionOf(int frequency) const;

protected:
    void arrange() override;
    void paintLayer(QPainter *painter, Layer layer) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void paintAxis(QPainter *painter) const;
    int heightOf(int value) const;
    int barAt(int x) const; ///< the nearest one

    QRect m_area;
    QVector<QRect> m_columns; ///< each bar's place with the gap behind it
    QVector<int> m_bars; ///< as they were set
    QVector<int> m_heights; ///< the same in pixels
    QString m_notice;
};
