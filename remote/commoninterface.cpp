#include "remote/commoninterface.h"

CommonInterface::CommonInterface(QObject *parent)
    : CommonInterfaceSource(parent)
{
}

void CommonInterface::sendMessage(const QString &msg)
{
    Q_EMIT sigMessage(msg);
}

void CommonInterface::onMessage(QString msg)
{
    Q_EMIT sigReceiveMsg(msg);
}
