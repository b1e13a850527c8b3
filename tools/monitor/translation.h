#pragma once

/// From now on the monitor, and what Qt itself says (buttons of message boxes, errors), speak the
/// user's language where there is a translation. Call it once, when the application object exists.
void installTranslations();
