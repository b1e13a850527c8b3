#pragma once

/// The highest recent value of a level: it stays for a while and then falls.
/// Times are milliseconds on any clock that never runs backwards.
class PeakHold {
public:
    static constexpr double kHoldMs = 1500;
    static constexpr double kFallDecibelsPerSecond = 20;

    /// Takes the level as it is now and returns the held one, which is never below it.
    double update(double level, double now);

    double value() const { return m_value; }

private:
    double m_value = 0;
    double m_fallsFrom = 0; ///< when it begins to fall, or last fell
};
