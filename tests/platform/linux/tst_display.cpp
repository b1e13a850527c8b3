// How Qt serves the program's windows.
#include "platform/display.h"

#include <QAbstractEventDispatcher>
#include <QGuiApplication>
#include <QtTest>

class DisplayTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void eventLoopIsQtsOwn();
    void fileDialogsAreQtsOwn();
    void openGlIsNotLoaded();
};

void DisplayTest::eventLoopIsQtsOwn()
{
    const auto *const dispatcher = QAbstractEventDispatcher::instance();
    QVERIFY(dispatcher);
    const QByteArray name = dispatcher->metaObject()->className();
    QVERIFY2(!name.contains("Glib"), name.constData());
}

void DisplayTest::fileDialogsAreQtsOwn()
{
    QVERIFY(QCoreApplication::testAttribute(Qt::AA_DontUseNativeDialogs));
}

void DisplayTest::openGlIsNotLoaded()
{
    QCOMPARE(qgetenv("QT_XCB_GL_INTEGRATION"), QByteArray("none"));
    QCOMPARE(qgetenv("QT_WAYLAND_CLIENT_BUFFER_INTEGRATION"), QByteArray("none"));
}

int main(int argc, char **argv)
{
    chooseDisplay();
    const QGuiApplication application(argc, argv);
    DisplayTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_display.moc"
