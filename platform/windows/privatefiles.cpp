#include "platform/privatefiles.h"

PrivateFileScope::PrivateFileScope() = default;
PrivateFileScope::~PrivateFileScope() = default;
