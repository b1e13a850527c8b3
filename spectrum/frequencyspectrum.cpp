#include "spectrum/frequencyspectrum.h"

FrequencySpectrum::FrequencySpectrum(int count)
    : m_elements(qMax(count, 0))
{
}
