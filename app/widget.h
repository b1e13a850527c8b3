#pragma once

#include "platform/qtgeneration.h"
#include "spectrum/spectrum.h"

#include <QString>
#include <QWidget>

class CommonInterface;
class QRemoteObjectHost;
class QTimer;

namespace Ui {
class Widget;
}

/// The program's one window and its conductor: tunes and starts the engine, publishes the spectrum
/// message fifty times a second, restarts capture when the user comes back to the desktop.
///
/// One pixel off the screen, in no task bar: it is there to hold the form and to receive the
/// notifications of log-on and unlock. Lives on the GUI thread, for the whole run of the event
/// loop, which does not end when windows close.
class Widget : public QWidget {
    Q_OBJECT

public:
    /// Starts everything: capture runs and messages flow once it returns. The capture room reports
    /// a capture that cannot start; nothing fails here. Where no consumer can connect, and none
    /// could for 15 s, the event loop ends with exit code 75.
    explicit Widget(QWidget *parent = nullptr);
    ~Widget() override;

public Q_SLOTS:
    /// Builds the message from the engine's present values and sends it.
    void timeOver();

private Q_SLOTS:
    /// Takes what a consumer sent, and drops it: the program has no inbound commands.
    void onReceiveMsg(QString msg);
    void on_pushButton_released();
    void on_pushButton_2_released();
    void on_comboBox_textActivated(QString arg1);
    /// Stops capture if it runs and starts it one second later, if the window still lives then.
    void restartService();

protected:
    void resizeEvent(QResizeEvent *event) override;
    /// Acts on the notifications of log-on and unlock; never marks a message as consumed.
    bool nativeEvent(const QByteArray &eventType, void *message,
                     NativeEventResult *result) override;

private:
    void registerSessionNotification();
    void setupRemote();
    void sessionChanged(quintptr code);

    QString m_message; ///< the last one built
    Ui::Widget *ui;
    CommonInterface *m_interface;
    QRemoteObjectHost *m_host;
    Spectrum m_spectrum; ///< filled by the engine while it lives
    QTimer *m_timer = nullptr;
};
