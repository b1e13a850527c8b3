#include "platform/privatefiles.h"

#include <sys/stat.h>

PrivateFileScope::PrivateFileScope()
    : m_before(umask(S_IRWXG | S_IRWXO))
{
}

PrivateFileScope::~PrivateFileScope()
{
    umask(mode_t(m_before));
}
