#include "platform/display.h"

#include <QByteArray>
#include <QByteArrayList>

void chooseDisplay()
{
    if (!qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        return;
    // Qt takes the first entry of the list that can be opened.
    QByteArrayList platforms;
    if (!qEnvironmentVariableIsEmpty("DISPLAY"))
        platforms.append(QByteArrayLiteral("xcb"));
    if (!qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        platforms.append(QByteArrayLiteral("wayland"));
    platforms.append(QByteArrayLiteral("offscreen"));
    qputenv("QT_QPA_PLATFORM", platforms.join(';'));
}
