#pragma once

#include <deque>
#include <QCoreApplication>
#include <QString>

/// Which height of the message reaches the top of the picture, so that the music fills it.
///
/// Fitting is calm: the top is one of a few fixed heights, rises at once when a bar would pass it,
/// and falls only when all bars of the last seconds fit well below a lower one. It glides from one
/// to the next. Silence changes nothing.
///
/// Knows no clock: every `now` is milliseconds on any clock that never runs backwards.
class HeightScale {
    Q_DECLARE_TR_FUNCTIONS(HeightScale)

public:
    enum Mode {
        Fitting,
        AsSent, ///< 400 at the top, what a message calls full scale
        ByHand
    };

    static constexpr double kCalmMs = 8000; ///< bars must fit a lower top for so long
    static constexpr double kFirstMs = 2000; ///< the same for the first sound
    static constexpr double kRiseMs = 150; ///< a glide's time
    static constexpr double kFallMs = 600;

    /// Takes the highest bar of a message.
    void addHighest(int highest, double now);

    /// What reaches the top now, in the message's numbers.
    double top(double now) const;

    Mode mode() const { return m_mode; }

    /// From fitting to what was sent; from all else to fitting.
    void toggle(double now);
    void setMode(Mode mode, double now);

    /// One step by hand: bars are drawn higher, or lower.
    void higher(double now);
    void lower(double now);

    /// Which scale it is, for the axis, in a few words and in one, with the height at the top.
    QString label() const;
    QString shortLabel() const;
    bool hasLabelOf(const HeightScale &other) const;

private:
    struct Peak {
        double time;
        int height;
    };

    void fit(double now);
    void glideTo(int top, double now);
    void step(int by, double now);

    Mode m_mode = Fitting;
    int m_fitted = 400; ///< what fits the music, in every mode
    int m_target = 400; ///< where the top is, or glides to
    double m_glidesFrom = 400;
    double m_glideStart = 0;
    double m_glideMs = 0; ///< 0: there is none
    double m_mayFall = -1; ///< when the fitted top may fall at the earliest; -1 before any sound
    std::deque<Peak> m_peaks; ///< of the last seconds: each is higher than all after it
};
