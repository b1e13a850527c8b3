#include "remote/commoninterface.h"

#include <QMetaClassInfo>
#include <QMetaMethod>
#include <QProcess>
#include <QRemoteObjectHost>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

namespace {

QByteArray classInfo(const QMetaObject &meta, const char *name)
{
    const int index = meta.indexOfClassInfo(name);
    return index < 0 ? QByteArray() : QByteArray(meta.classInfo(index).value());
}

} // namespace

class CommonInterfaceTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void classInfoIsWhatConsumersCompare();
    void metaMethodsInOrder();
    void sendMessageEmitsTheText();
    void onMessageEmitsTheTextAndNothingElse();
    void replicaInAnotherProcessReceivesAndSends();
    void replicaThatConnectsLateReceivesTheNextMessage();
};

void CommonInterfaceTest::classInfoIsWhatConsumersCompare()
{
    const QMetaObject &meta = CommonInterfaceSource::staticMetaObject;
    QCOMPARE(classInfo(meta, "RemoteObject Type"), QByteArray("CommonInterface"));
    QCOMPARE(classInfo(meta, "RemoteObject Signature"),
             QByteArray("db1dd3bf682341fd9bce027d40df2c242ec22e33"));
    QCOMPARE(meta.classInfoCount() - meta.classInfoOffset(), 2);
}

void CommonInterfaceTest::metaMethodsInOrder()
{
    const QMetaObject &source = CommonInterfaceSource::staticMetaObject;
    QCOMPARE(source.superClass()->className(), "QObject");
    QCOMPARE(source.methodCount() - source.methodOffset(), 2);
    const QMetaMethod signal = source.method(source.methodOffset());
    QCOMPARE(signal.methodSignature(), QByteArray("sigMessage(QString)"));
    QCOMPARE(signal.methodType(), QMetaMethod::Signal);
    QCOMPARE(signal.parameterNames(), QList<QByteArray> {QByteArray("msg")});
    const QMetaMethod slot = source.method(source.methodOffset() + 1);
    QCOMPARE(slot.methodSignature(), QByteArray("onMessage(QString)"));
    QCOMPARE(slot.methodType(), QMetaMethod::Slot);
    QCOMPARE(slot.parameterNames(), QList<QByteArray> {QByteArray("msg")});

    const QMetaObject &own = CommonInterface::staticMetaObject;
    QCOMPARE(own.superClass()->className(), "CommonInterfaceSource");
    QCOMPARE(own.methodCount() - own.methodOffset(), 1); // the slot is the base's alone
    const QMetaMethod received = own.method(own.methodOffset());
    QCOMPARE(received.methodSignature(), QByteArray("sigReceiveMsg(QString)"));
    QCOMPARE(received.methodType(), QMetaMethod::Signal);
}

void CommonInterfaceTest::sendMessageEmitsTheText()
{
    CommonInterface source;
    const QSignalSpy sent(&source, &CommonInterface::sigMessage);
    const QSignalSpy received(&source, &CommonInterface::sigReceiveMsg);
    source.sendMessage(QStringLiteral("a text"));
    source.sendMessage(QString());
    QCOMPARE(sent.count(), 2);
    QCOMPARE(sent.at(0).at(0).toString(), QStringLiteral("a text"));
    QCOMPARE(sent.at(1).at(0).toString(), QString());
    QCOMPARE(received.count(), 0);
}

void CommonInterfaceTest::onMessageEmitsTheTextAndNothingElse()
{
    CommonInterface source;
    const QSignalSpy sent(&source, &CommonInterface::sigMessage);
    const QSignalSpy received(&source, &CommonInterface::sigReceiveMsg);
    source.onMessage(QStringLiteral("命令"));
    QCOMPARE(received.count(), 1);
    QCOMPARE(received.at(0).at(0).toString(), QStringLiteral("命令"));
    QCOMPARE(sent.count(), 0);
}

void CommonInterfaceTest::replicaInAnotherProcessReceivesAndSends()
{
    const QString url =
        QStringLiteral("local:tonewell-tst-%1").arg(QCoreApplication::applicationPid());
    QRemoteObjectHost host;
    QVERIFY(host.setHostUrl(QUrl(url)));
    CommonInterface source;
    QVERIFY(host.enableRemoting(&source, QStringLiteral("Tonewell")));
    QSignalSpy received(&source, &CommonInterface::sigReceiveMsg);

    QProcess probe;
    probe.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    probe.start(QStringLiteral(REPLICAPROBE),
                {url, QStringLiteral("3"), QStringLiteral("from outside")});
    QTRY_COMPARE_WITH_TIMEOUT(received.count(), 1, 20000);
    QCOMPARE(received.at(0).at(0).toString(), QStringLiteral("from outside"));
    for (const char *text : {"first", "第二", "third/&+&/0"})
        source.sendMessage(QString::fromUtf8(text));
    QTRY_COMPARE_WITH_TIMEOUT(probe.state(), QProcess::NotRunning, 20000);
    QCOMPARE(probe.exitCode(), 0);
    QCOMPARE(QString::fromUtf8(probe.readAllStandardOutput()),
             QStringLiteral("valid\nfirst\n第二\nthird/&+&/0\n"));
    QCOMPARE(received.count(), 1);
}

void CommonInterfaceTest::replicaThatConnectsLateReceivesTheNextMessage()
{
    const QString url =
        QStringLiteral("local:tonewell-late-%1").arg(QCoreApplication::applicationPid());
    QRemoteObjectHost host;
    QVERIFY(host.setHostUrl(QUrl(url)));
    CommonInterface source;
    QVERIFY(host.enableRemoting(&source, QStringLiteral("Tonewell")));
    int number = 0;
    QTimer timer;
    connect(&timer, &QTimer::timeout, &source,
            [&] { source.sendMessage(QStringLiteral("number %1").arg(number++)); });
    timer.start(20);
    QTRY_VERIFY_WITH_TIMEOUT(number >= 3, 20000);

    QProcess probe;
    probe.start(QStringLiteral(REPLICAPROBE), {url, QStringLiteral("2")});
    QTRY_COMPARE_WITH_TIMEOUT(probe.state(), QProcess::NotRunning, 20000);
    QCOMPARE(probe.exitCode(), 0);
    const QStringList lines =
        QString::fromUtf8(probe.readAllStandardOutput()).split(QLatin1Char('\n'));
    QCOMPARE(lines.size(), 4);
    const int first = lines.at(1).section(QLatin1Char(' '), 1).toInt();
    QVERIFY2(first >= 3, qPrintable(lines.at(1)));
    QCOMPARE(lines.at(2), QStringLiteral("number %1").arg(first + 1));
}

QTEST_GUILESS_MAIN(CommonInterfaceTest)
#include "tst_commoninterface.moc"
