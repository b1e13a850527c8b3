#pragma once

#include "tools/monitor/layeredwidget.h"
#include "tools/monitor/spectrumreading.h"

#include <array>

/// Three horizontal meters, for RMS, peak and dynamic, with a mark where each held level is, above
/// one scale in decibels of full scale.
class LevelMeters : public LayeredWidget {
    Q_OBJECT

public:
    static constexpr int kCount = 3;

    explicit LevelMeters(QWidget *parent = nullptr);

    /// The levels as they were sent. Only what is different is painted.
    void setLevels(const Levels &levels, const Levels &held);

    /// Writes levels beside the meters as numbers, 1 for full scale: best the held ones, since
    /// nobody can read numbers that change fifty times a second.
    void setNumbers(const Levels &held);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

    /// The number beside a meter.
    QString number(int meter) const { return m_meters.at(static_cast<std::size_t>(meter)).number; }

    /// The places of the scale's numbers.
    QVector<QRect> labelAreas() const;

    /// A meter's place, from its floor to full scale; 0 RMS, 1 peak, 2 dynamic.
    QRect meterArea(int meter) const;

protected:
    void arrange() override;
    void paintLayer(QPainter *painter, Layer layer) override;
    void paintEvent(QPaintEvent *event) override;

private:
    struct Meter {
        double level = 0; ///< 0 to 1, on the scale
        double held = 0;
        int width = 0; ///< the same in pixels
        int mark = 0;
        QString number;
    };
    struct Label {
        QRect area;
        QString text;
        int x; ///< of its mark
    };
    void place(Meter *meter) const;
    void arrangeScale();
    QRect numberArea(int meter) const;
    QRect markArea(int meter) const;

    std::array<Meter, kCount> m_meters;
    QVector<Label> m_labels;
    QRect m_first; ///< the first meter's place; the others are below
};
