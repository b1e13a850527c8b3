// What is found of the service: among processes, units and programs that this test makes up.
#include "platform/servicelookup.h"

#include <memory>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <unistd.h>
#include <utility>

class ServiceLookupTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void nothingIsInstalled();
    void theProgramInThePath();
    void theUnitOfARunningManager();
    void aUnitWithoutAManagerIsNoHelp();
    void copiesByTheirTemporaryFolder();
    void aReplacedProgramStillRuns();
    void otherSessionsAreLeftOut();
    void othersAreLeftOut();
    void theSoundServerOfTheCopyHere();
    void anotherListOfProcesses();
    void thisProcessIsNone();
    void aSocketOfOurs();
    void aSocketOfAnother();

private:
    QString path(const QString &name) const { return m_folder->filePath(name); }
    void addFile(const QString &name, const QByteArray &content = {}) const;
    void addProgram(const QString &name) const;
    void addProcess(int id, const QString &program, const QByteArray &environment) const;
    ServiceLookup look() const
    {
        return lookForService(path(QStringLiteral("proc")), path(QStringLiteral("beside")));
    }
    QStringList running() const { return look().runningIn; }

    std::unique_ptr<QTemporaryDir> m_folder;
    QList<QPair<QByteArray, QByteArray>> m_before;
};

void ServiceLookupTest::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    for (const char *const name : {"TMPDIR", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME", "XDG_DATA_HOME",
                                   "XDG_CONFIG_DIRS", "XDG_DATA_DIRS", "PATH"}) {
        m_before.append({name, qgetenv(name)});
        qputenv(name, QFile::encodeName(m_folder->filePath(QString::fromLatin1(name))));
        QDir(m_folder->path()).mkdir(QString::fromLatin1(name));
    }
}

void ServiceLookupTest::cleanup()
{
    for (const auto &variable : std::as_const(m_before))
        qputenv(variable.first.constData(), variable.second);
    m_before.clear();
    m_folder.reset();
}

void ServiceLookupTest::addFile(const QString &name, const QByteArray &content) const
{
    QVERIFY(QDir(m_folder->path()).mkpath(QFileInfo(name).path()));
    QFile file(path(name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), content.size());
}

void ServiceLookupTest::addProgram(const QString &name) const
{
    addFile(name);
    QVERIFY(QFile::setPermissions(path(name), QFile::ReadOwner | QFile::ExeOwner));
}

void ServiceLookupTest::addProcess(int id, const QString &program,
                                   const QByteArray &environment) const
{
    const QString folder = QStringLiteral("proc/%1").arg(id);
    addFile(folder + QStringLiteral("/environ"), environment);
    QVERIFY(QFile::link(program, path(folder + QStringLiteral("/exe"))));
}

void ServiceLookupTest::nothingIsInstalled()
{
    const ServiceLookup found = look();
    QVERIFY(found.startCommand.isEmpty());
    QVERIFY(found.runningIn.isEmpty());
    QVERIFY(found.foreignOwner.isEmpty());
    QCOMPARE(found.socket, path(QStringLiteral("TMPDIR/tonewell")));
}

void ServiceLookupTest::theProgramInThePath()
{
    addProgram(QStringLiteral("PATH/TonewellDetection"));
    QCOMPARE(look().startCommand, QStringList {path(QStringLiteral("PATH/TonewellDetection"))});
    // The one beside this program is of the same build.
    addProgram(QStringLiteral("beside/TonewellDetection"));
    QCOMPARE(look().startCommand, QStringList {path(QStringLiteral("beside/TonewellDetection"))});
}

void ServiceLookupTest::theUnitOfARunningManager()
{
    addProgram(QStringLiteral("PATH/TonewellDetection"));
    addProgram(QStringLiteral("PATH/systemctl"));
    addFile(QStringLiteral("XDG_RUNTIME_DIR/systemd/private"));
    for (const char *const place : {"XDG_CONFIG_HOME", "XDG_DATA_HOME"}) {
        const QString unit =
            QString::fromLatin1(place) + QStringLiteral("/systemd/user/tonewell-detection.service");
        addFile(unit);
        QCOMPARE(look().startCommand,
                 (QStringList {QStringLiteral("systemctl"), QStringLiteral("--user"),
                               QStringLiteral("start"), QStringLiteral("tonewell-detection")}));
        QVERIFY(QFile::remove(path(unit)));
    }
}

void ServiceLookupTest::aUnitWithoutAManagerIsNoHelp()
{
    addProgram(QStringLiteral("PATH/systemctl"));
    addFile(QStringLiteral("XDG_CONFIG_HOME/systemd/user/tonewell-detection.service"));
    QVERIFY(look().startCommand.isEmpty());
    addProgram(QStringLiteral("PATH/TonewellDetection"));
    QCOMPARE(look().startCommand.size(), 1);
}

void ServiceLookupTest::copiesByTheirTemporaryFolder()
{
    const QString program = QStringLiteral("/usr/bin/TonewellDetection");
    addProcess(101, program, QByteArray("A=1\0TMPDIR=/elsewhere/\0B=2\0", 27));
    addProcess(102, program, QByteArray("A=1\0NOTMPDIR=/x\0", 16));
    addProcess(103, program, QByteArray("TMPDIR=\0", 8));
    QStringList folders = running();
    folders.sort();
    QCOMPARE(folders, (QStringList {QStringLiteral("/elsewhere"), QStringLiteral("/tmp")}));
}

void ServiceLookupTest::aReplacedProgramStillRuns()
{
    addProcess(101, QStringLiteral("/usr/bin/TonewellDetection (deleted)"), "TMPDIR=/old");
    QCOMPARE(running(), QStringList {QStringLiteral("/old")});
}

void ServiceLookupTest::otherSessionsAreLeftOut()
{
    const QString program = QStringLiteral("/usr/bin/TonewellDetection");
    addProcess(101, program, QByteArray("TMPDIR=/a\0XDG_RUNTIME_DIR=/run/other", 36));
    QVERIFY(running().isEmpty());
    addProcess(102, program,
               QByteArray("TMPDIR=/b\0XDG_RUNTIME_DIR=", 26) + qgetenv("XDG_RUNTIME_DIR"));
    addProcess(103, program, "TMPDIR=/c"); // one that does not say
    QStringList folders = running();
    folders.sort();
    QCOMPARE(folders, (QStringList {QStringLiteral("/b"), QStringLiteral("/c")}));
}

void ServiceLookupTest::othersAreLeftOut()
{
    addProcess(101, QStringLiteral("/usr/bin/TonewellDetection2"), "TMPDIR=/a");
    addProcess(102, QStringLiteral("/TonewellDetection/other"), "TMPDIR=/a");
    QVERIFY(QFile::link(QStringLiteral("/usr/bin/TonewellDetection"), path(QStringLiteral("exe"))));
    QVERIFY(running().isEmpty());
}

void ServiceLookupTest::theSoundServerOfTheCopyHere()
{
    const QString program = QStringLiteral("/usr/bin/TonewellDetection");
    const QByteArray here = "TMPDIR=" + qgetenv("TMPDIR");
    const QByteArray session =
        QByteArray(1, '\0') + "XDG_RUNTIME_DIR=" + qgetenv("XDG_RUNTIME_DIR");
    const QByteArray server = QByteArray(1, '\0') + "PULSE_SERVER=unix:/x";
    QVERIFY(!look().hearsElsewhere);
    addProcess(101, program, here + session);
    QVERIFY(!look().hearsElsewhere);
    addProcess(102, program, "TMPDIR=/elsewhere" + session + server); // not the one that is heard
    QVERIFY(!look().hearsElsewhere);
    QVERIFY(QDir(path(QStringLiteral("proc/101"))).removeRecursively());
    addProcess(103, program, here + session + server);
    QVERIFY(look().hearsElsewhere);
    QVERIFY(QDir(path(QStringLiteral("proc/103"))).removeRecursively());
    addProcess(104, program, here); // of no session
    QVERIFY(look().hearsElsewhere);
}

void ServiceLookupTest::anotherListOfProcesses()
{
    addProcess(101, QStringLiteral("/usr/bin/TonewellDetection"), "TMPDIR=/made/up");
    QVERIFY(!lookForService().runningIn.contains(QStringLiteral("/made/up")));
    qputenv("TONEWELL_PROCESSES", QFile::encodeName(path(QStringLiteral("proc"))));
    const QStringList running = lookForService().runningIn;
    qunsetenv("TONEWELL_PROCESSES");
    QCOMPARE(running, QStringList {QStringLiteral("/made/up")});
}

void ServiceLookupTest::thisProcessIsNone()
{
    // The real list, in which there may be copies of other tests: it is read, and this is none.
    QVERIFY(!lookForService().runningIn.contains(path(QStringLiteral("TMPDIR"))));
}

void ServiceLookupTest::aSocketOfOurs()
{
    addFile(QStringLiteral("TMPDIR/tonewell"));
    QVERIFY(look().foreignOwner.isEmpty());
}

void ServiceLookupTest::aSocketOfAnother()
{
    addFile(QStringLiteral("TMPDIR/tonewell"));
    const QByteArray socket = QFile::encodeName(path(QStringLiteral("TMPDIR/tonewell")));
    if (chown(socket.constData(), 1, 1) != 0)
        QSKIP("only root can give a file to another user", "");
    QCOMPARE(look().foreignOwner, QStringLiteral("daemon"));
    QCOMPARE(chown(socket.constData(), 64321, 1), 0); // whom nobody knows
    QCOMPARE(look().foreignOwner, QStringLiteral("64321"));
}

QTEST_GUILESS_MAIN(ServiceLookupTest)
#include "tst_servicelookup.moc"
