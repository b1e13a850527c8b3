#pragma once

#include <QMetaType>
#include <QVector>

/// One computed spectrum: a fixed number of points, implicitly shared.
///
/// Copies share storage and cost one atomic increment, so a spectrum is passed by value, also
/// through queued signals. The first write through a non-const accessor of a shared copy detaches
/// it: all points are copied, the other owners keep theirs. The reference count is atomic; one
/// object belongs to one thread at a time, its copies may be on others.
///
/// As the analyser lays a spectrum out, the first channel comes first, from its highest bin down
/// to 0 Hz, then the second channel from 0 Hz up.
class FrequencySpectrum {
public:
    struct Element {
        /// Hz. At or below zero for the first (left) channel, at or above for the second (right);
        /// twice the frequency of the bin.
        double frequency = 0.0;
        /// 0.0 to 1.0 as the analyser writes it. In the spectrum that the engine fills the bars
        /// from, what its post-processing has made of that: it may pass 1.0.
        double amplitude = 0.0;
        /// The amplitude exceeded 1.0 before it was limited.
        bool clipped = false;
    };

    using iterator = Element *;
    using const_iterator = const Element *;

    /// `count` points, all zero. A count below 1 gives an empty spectrum and allocates nothing.
    explicit FrequencySpectrum(int count = 0);

    int count() const { return m_elements.size(); }

    /// No bounds check: the index is within 0 and count() - 1. The non-const one detaches.
    const Element &operator[](int index) const { return m_elements.constData()[index]; }
    Element &operator[](int index) { return m_elements.data()[index]; }

    const_iterator begin() const { return m_elements.constData(); }
    const_iterator end() const { return begin() + count(); }
    /// Detaches, once for the whole loop.
    iterator begin() { return m_elements.data(); }
    iterator end() { return begin() + count(); }

private:
    QVector<Element> m_elements;
};

Q_DECLARE_TYPEINFO(FrequencySpectrum::Element, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(FrequencySpectrum)
