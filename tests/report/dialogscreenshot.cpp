// Takes the pictures of the documentation: the error report dialog after a start that failed, and
// the file that it saves, in a plain text view.
// usage: dialogscreenshot dialog.png saved.png, on a display and without a sound server
#include "capture/audiocapture.h"
#include "report/deliverreport.h"
#include "report/errorreportdialog.h"

#include <cstdio>
#include <QApplication>
#include <QFile>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QTimer>

namespace {

QString s_report;

bool grab(QWidget *widget, const QString &path)
{
    for (int i = 0; i < 10; ++i) // until it has been laid out and drawn
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    return widget->grab().save(path, "PNG");
}

// Presses "保存到文件", chooses the path and confirms what the dialog says.
void save(ErrorReportDialog *dialog, const QString &path)
{
    QTimer user;
    QObject::connect(&user, &QTimer::timeout, [&path] {
        QWidget *const modal = QApplication::activeModalWidget();
        if (auto *box = qobject_cast<QMessageBox *>(modal)) {
            box->accept();
        } else if (auto *files = qobject_cast<QFileDialog *>(modal)) {
            files->findChild<QLineEdit *>()->setText(path);
            static_cast<QDialog *>(files)->accept();
        }
    });
    user.start(100);
    for (QPushButton *button : dialog->findChildren<QPushButton *>()) {
        if (button->text() == QStringLiteral("保存到文件"))
            button->click();
    }
}

} // namespace

int main(int argc, char **argv)
{
    QApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
    QApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("TonewellDetection"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TONEWELL_VERSION));
    if (argc != 3)
        return 2;
    const QString dialogPicture = QString::fromLocal8Bit(argv[1]);
    const QString savedPicture = QString::fromLocal8Bit(argv[2]);

    setReportSink([](const QString &report) { s_report = report; });
    {
        AudioCapture capture;
        capture.startCapture();
    }
    if (s_report.isEmpty()) {
        std::fputs("dialogscreenshot: the start did not fail; is there a sound server?\n", stderr);
        return 1;
    }
    // The pictures show the program where it is installed, not where it was built.
    s_report.replace(QCoreApplication::applicationFilePath(),
                     QStringLiteral("/usr/bin/TonewellDetection"));

    ErrorReportDialog dialog(s_report);
    dialog.show();
    if (!grab(&dialog, dialogPicture))
        return 1;

    const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("报告.txt"));
    dialog.setModal(true);
    save(&dialog, path);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return 1;
    QTextEdit editor;
    editor.setFont(dialog.findChild<QTextEdit *>()->font());
    editor.setPlainText(QString::fromUtf8(file.readAll()));
    editor.resize(800, 1400);
    editor.show();
    return grab(&editor, savedPicture) ? 0 : 1;
}
