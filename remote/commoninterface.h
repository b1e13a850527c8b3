#pragma once

#include <QString>

// Generated from commoninterface.rep.
#include "rep_commoninterface_source.h"

/// The published object: one text message out, one in.
///
/// Lives on the GUI thread together with the host that publishes it. A consumer acquires it by
/// the name given to enableRemoting, not by its type name; type and signature are compared
/// between both sides, so any change of the .rep file shuts existing consumers out.
class CommonInterface : public CommonInterfaceSource {
    Q_OBJECT

public:
    explicit CommonInterface(QObject *parent = nullptr);

    /// Sends the text to every connected replica. The only way out of the program.
    void sendMessage(const QString &msg);

    /// Called by a replica; hands the text on through sigReceiveMsg.
    void onMessage(QString msg) override;

Q_SIGNALS:
    void sigReceiveMsg(QString msg);
};
