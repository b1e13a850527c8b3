// Consumers that stop reading: stallingconsumers URL COUNT
//
// Acquires COUNT replicas, each over a connection of its own, prints "stalled" when all are valid,
// and from then on neither reads nor ends by itself.
#include "rep_commoninterface_replica.h"

#include <cstdio>
#include <memory>
#include <QCoreApplication>
#include <QRemoteObjectNode>
#include <QThread>
#include <QUrl>
#include <vector>

int main(int argc, char **argv)
{
    const QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 3)
        return 1;
    std::vector<std::unique_ptr<QRemoteObjectNode>> nodes;
    std::vector<std::unique_ptr<CommonInterfaceReplica>> replicas;
    for (int i = arguments.at(2).toInt(); i > 0; --i) {
        nodes.push_back(std::make_unique<QRemoteObjectNode>());
        nodes.back()->connectToNode(QUrl(arguments.at(1)));
        replicas.emplace_back(
            nodes.back()->acquire<CommonInterfaceReplica>(QStringLiteral("Tonewell")));
    }
    for (const auto &replica : replicas) {
        if (!replica->waitForSource(20000))
            return 2;
    }
    std::puts("stalled");
    std::fflush(stdout);
    for (;;)
        QThread::sleep(3600);
}
