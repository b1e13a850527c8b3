#include "platform/soundoutput.h"

// Whether there is an output device is known to the service, and what plays to it to nobody without
// a capture of its own.
class SoundOutput::Connection { };

SoundOutput::SoundOutput(QObject *parent)
    : QObject(parent)
{
}

SoundOutput::~SoundOutput() = default;

void SoundOutput::setActive(bool) { }

void SoundOutput::setState(const SoundOutputState &) { }
