// The program with consumers that misbehave.
#include "tests/app/linux/programworld.h"
#include "tests/remote/frames.h"
#include "tests/support/linux/processfigures.h"
#include "tests/support/privatefolder.h"
#include "tools/monitor/messagesource.h"
#include "tools/monitor/messagestatistics.h"

#include <memory>
#include <QElapsedTimer>
#include <QFile>
#include <QLocalSocket>
#include <QRandomGenerator>
#include <QTest>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr int kPatienceMs = 30000;

/// How messages arrive here during the given time.
MessageStatistics measure(int milliseconds)
{
    MessageSource source;
    MessageStatistics statistics;
    QElapsedTimer clock;
    clock.start();
    QObject::connect(&source, &MessageSource::messageReceived, &source, [&] {
        statistics.addMessage(static_cast<double>(clock.nsecsElapsed()) * 1e-6);
    });
    QTest::qWait(milliseconds);
    return statistics;
}

/// A connect of another user to the socket: 0, or the error number.
int connectAs(uid_t user, const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    const pid_t child = fork();
    if (child == 0) {
        // Between fork and _exit only system calls.
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, name.constData(), sizeof address.sun_path);
        const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
        if (setuid(user) != 0)
            _exit(255);
        errno = 0;
        const bool connected =
            connect(socket, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
        _exit(connected ? 0 : errno);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// What no consumer may send, by name.
std::vector<std::pair<const char *, QByteArray>> wrongBytes()
{
    using namespace frames;
    const QByteArray text = bytes(QVariantList {QStringLiteral("text")});
    QRandomGenerator random(7);
    QByteArray noise(20000, '\0');
    for (char &byte : noise)
        byte = static_cast<char>(random.generate());
    return {
        {"length 0", frame(QByteArray())},
        {"a length of 2 GB", bytes(0x7FFFFFFFU)},
        {"unknown kind", frame(QByteArray("\x7f\xff\x00\x00", 4))},
        {"kind only", frame(bytes(kDetach))},
        {"a name of 4 GB", frame(bytes(kAttach, 0xFFFFFFFEU))},
        {"another object", attach(false, QStringLiteral("Other"))},
        {"attached twice", attach() + attach()},
        {"the source's handshake", frame(bytes(quint16 {1}, QStringLiteral("QtRO 1.3")))},
        {"another method", callWith(text, 1)},
        {"a property", callWith(text, 0, 2)},
        {"no argument", callWith(QVariantList())},
        {"a number", callWith(QVariantList {7})},
        {"an invalid one", callWith(QVariantList {QVariant()})},
        {"two arguments", callWith(QVariantList {QStringLiteral("x"), QStringLiteral("y")})},
        {"a text cut off", callWith(text.chopped(4))},
        {"4 billion arguments", callWith(bytes(0xFFFFFFF0U))},
        {"noise", noise},
    };
}

} // namespace

class ConsumersTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void anotherUserIsRefused();
    void sixtyFourStalledConsumersDelayNobody();
    void wrongFramesDropTheirSenderOnly();
    void halfAFrameIsWaitedFor();

private:
    std::unique_ptr<ProgramWorld> m_world;
    std::unique_ptr<PrivateFolder> m_folder;
};

void ConsumersTest::init()
{
    m_world = std::make_unique<ProgramWorld>();
    // The replicas of this process look where the program's socket is.
    m_folder = std::make_unique<PrivateFolder>(QFileInfo(m_world->socket()).path());
}

void ConsumersTest::cleanup()
{
    m_folder.reset();
    m_world.reset();
}

void ConsumersTest::anotherUserIsRefused()
{
    if (getuid() != 0)
        QSKIP("only root can act as another user", "");
    // The folder and the mask of file modes let everybody in: the socket itself has to refuse.
    const QByteArray folder = QFile::encodeName(QFileInfo(m_world->socket()).path());
    QCOMPARE(chmod(folder.constData(), 0755), 0);
    const mode_t mask = umask(0);
    const auto copy = m_world->startAndWait();
    umask(mask);
    QVERIFY(copy);
    QCOMPARE(connectAs(65534, m_world->socket()), EACCES);
    QCOMPARE(connectAs(getuid(), m_world->socket()), 0);
    copy->terminate();
    QVERIFY(copy->waitForFinished(kPatienceMs));
}

void ConsumersTest::sixtyFourStalledConsumersDelayNobody()
{
    const auto copy = m_world->startAndWait();
    QVERIFY(copy);
    const MessageStatistics alone = measure(4000);
    const long memoryAlone = residentMemory(*copy);

    QProcess stalling;
    stalling.setProcessEnvironment(m_world->environment);
    stalling.start(QStringLiteral(STALLINGCONSUMERS),
                   {QStringLiteral("local:tonewell"), QStringLiteral("64")});
    QTRY_VERIFY_WITH_TIMEOUT(stalling.canReadLine(), kPatienceMs);
    const int connected = descriptors(*copy);

    // One kilobyte and more a message and consumer: the limit is reached in 20 s.
    MessageStatistics together;
    long most = 0;
    QElapsedTimer clock;
    clock.start();
    MessageSource source;
    connect(&source, &MessageSource::messageReceived, &source,
            [&] { together.addMessage(static_cast<double>(clock.nsecsElapsed()) * 1e-6); });
    const auto dropped = [&] {
        most = qMax(most, residentMemory(*copy));
        return descriptors(*copy) <= connected - 64 + 1;
    };
    QTRY_VERIFY_WITH_TIMEOUT(dropped(), 90000);
    qInfo("alone: %s", qPrintable(alone.report().simplified()));
    qInfo("with 64 stalled: %s", qPrintable(together.report().simplified()));
    qInfo("memory: %ld kB alone, %ld kB at most, %ld kB after; dropped after %lld s", memoryAlone,
          most, residentMemory(*copy), clock.elapsed() / 1000);
#ifdef __SANITIZE_THREAD__
    const long each = 5 * 2048; // with what the sanitizer notes about each byte
#else
    const long each = 2048;
#endif
    QVERIFY2(most < memoryAlone + 64 * each, qPrintable(QString::number(most)));
    QVERIFY(together.messages() > 100);
    // The delay may grow by no more than one interval between messages. On a loaded machine the
    // other processes alone change it by less than that from run to run.
    QVERIFY2(together.gapPercentile(0.99) < alone.gapPercentile(0.99) + 20,
             "the others' messages come as before");
    stalling.kill();
    QVERIFY(stalling.waitForFinished(kPatienceMs));
    copy->terminate();
    QVERIFY(copy->waitForFinished(kPatienceMs));
}

void ConsumersTest::wrongFramesDropTheirSenderOnly()
{
    const auto copy = m_world->startAndWait();
    QVERIFY(copy);
    MessageSource other;
    int messages = 0;
    connect(&other, &MessageSource::messageReceived, &other, [&messages] { ++messages; });
    QTRY_VERIFY_WITH_TIMEOUT(messages > 0, kPatienceMs);
    const int open = descriptors(*copy);
    for (const auto &[name, bytes] : wrongBytes()) {
        QLocalSocket client;
        client.connectToServer(m_world->socket());
        QVERIFY(client.waitForConnected(kPatienceMs));
        client.write(bytes);
        QVERIFY2(QTest::qWaitFor([&] { return client.state() == QLocalSocket::UnconnectedState; },
                                 kPatienceMs),
                 name);
        QVERIFY2(copy->state() == QProcess::Running, name);
    }
    QTRY_COMPARE_WITH_TIMEOUT(descriptors(*copy), open, kPatienceMs);
    const int before = messages;
    QTRY_VERIFY_WITH_TIMEOUT(messages > before + 5, kPatienceMs);
    QCOMPARE(other.state(), ServiceState::Connected);
    copy->terminate();
    QVERIFY(copy->waitForFinished(kPatienceMs));
    QCOMPARE(copy->exitCode(), 0);
}

void ConsumersTest::halfAFrameIsWaitedFor()
{
    const auto copy = m_world->startAndWait();
    QVERIFY(copy);
    for (const QByteArray &bytes : {QByteArray(2, '\0'), frames::attach().chopped(1)}) {
        QLocalSocket client;
        client.connectToServer(m_world->socket());
        QVERIFY(client.waitForConnected(kPatienceMs));
        client.write(bytes);
        QTest::qWait(300);
        QCOMPARE(client.state(), QLocalSocket::ConnectedState);
    }
    QVERIFY(!m_world->receive(2).isEmpty());
    copy->terminate();
    QVERIFY(copy->waitForFinished(kPatienceMs));
}

QTEST_GUILESS_MAIN(ConsumersTest)
#include "tst_consumers.moc"
