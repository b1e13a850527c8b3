#include "platform/display.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QGuiApplication>

void chooseDisplay()
{
    qputenv("QT_NO_GLIB", "1");
    for (const char *const name :
         {"QT_XCB_GL_INTEGRATION", "QT_WAYLAND_CLIENT_BUFFER_INTEGRATION"}) {
        if (qEnvironmentVariableIsEmpty(name))
            qputenv(name, "none");
    }
    QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
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

bool dialogCanBeSeen()
{
    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        return false;
    // Every other platform of Qt shows its windows to somebody, if only to a remote viewer.
    const QString display = QGuiApplication::platformName();
    return display != QLatin1String("offscreen") && display != QLatin1String("minimal")
        && QGuiApplication::primaryScreen();
}
