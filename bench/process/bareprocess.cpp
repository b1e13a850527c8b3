// The process that the program is compared with: a widgets application with the same timers and
// the same host, a fixed text of a message's length, a second thread that wakes every 5 ms, and no
// audio at all.
#include "remote/commoninterface.h"
#include "remote/spectrummessage.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <QApplication>
#include <QRemoteObjectHost>
#include <QTimer>
#include <QUrl>
#include <QWidget>
#include <thread>
#include <vector>

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);

    QWidget window;
    window.setWindowFlags(Qt::Tool | Qt::FramelessWindowHint);
    window.resize(1, 1);
    window.show();

    QRemoteObjectHost host;
    host.setHostUrl(QUrl(QStringLiteral("local:tonewell")));
    CommonInterface interface;
    host.enableRemoting(&interface, QStringLiteral("Tonewell"));

    std::vector<float> bars(100);
    std::fill_n(bars.begin(), 10, 0.25F); // as long a text as a tone's
    const QString text = spectrumMessage(0.123456, 0.28125, 0.008125, bars.data(), 100);
    QTimer publish;
    publish.setTimerType(Qt::PreciseTimer);
    QObject::connect(&publish, &QTimer::timeout, &interface, [&] { interface.sendMessage(text); });
    publish.start(20);

    QTimer tick;
    QObject::connect(&tick, &QTimer::timeout, &interface, [] {});
    tick.start(17);

    std::atomic<bool> running {true};
    std::thread poller([&running] {
        while (running)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    });
    const int result = QApplication::exec();
    running = false;
    poller.join();
    return result;
}
