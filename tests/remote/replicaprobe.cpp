// A consumer for the tests: replicaprobe URL COUNT [TEXT]
//
// Acquires the replica "Tonewell" at URL, prints "valid" once it is, sends TEXT (if any) to the
// source, then prints each message on a line of its own. Ends with 0 after COUNT messages, with 2
// when the source is of another type, with 3 after 20 s.
#include "rep_commoninterface_replica.h"

#include <cstdio>
#include <QCoreApplication>
#include <QRemoteObjectNode>
#include <QTimer>
#include <QUrl>

namespace {

void printLine(const QString &text)
{
    std::printf("%s\n", text.toUtf8().constData());
    std::fflush(stdout);
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 3)
        return 1;
    int left = arguments.at(2).toInt();

    QRemoteObjectNode node;
    node.connectToNode(QUrl(arguments.at(1)));
    const QScopedPointer<CommonInterfaceReplica> replica(
        node.acquire<CommonInterfaceReplica>(QStringLiteral("Tonewell")));
    QObject::connect(replica.data(), &CommonInterfaceReplica::stateChanged, &app,
                     [&](QRemoteObjectReplica::State state) {
                         if (state == QRemoteObjectReplica::SignatureMismatch)
                             QCoreApplication::exit(2);
                         if (state != QRemoteObjectReplica::Valid)
                             return;
                         printLine(QStringLiteral("valid"));
                         if (arguments.size() > 3)
                             replica->onMessage(arguments.at(3));
                     });
    QObject::connect(replica.data(), &CommonInterfaceReplica::sigMessage, &app,
                     [&left](const QString &msg) {
                         printLine(msg);
                         if (--left == 0)
                             QCoreApplication::exit(0);
                     });
    QTimer::singleShot(20000, &app, [] { QCoreApplication::exit(3); });
    return QCoreApplication::exec();
}
