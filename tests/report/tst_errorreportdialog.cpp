// The dialog on a real X server, operated by its buttons.
#include "platform/display.h"
#include "platform/qtgeneration.h"
#include "report/errorreportdialog.h"
#include "tests/support/text.h"

#include <functional>
#include <QApplication>
#include <QClipboard>
#include <QFileDialog>
#include <QFontDatabase>
#include <QFontInfo>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextEdit>
#include <QtTest>
#include <QVBoxLayout>

namespace {

const QString kReport = QStringLiteral("[Heading]\n  Device: 扬声器\n\n  Share: 45%%\n");

QPushButton *button(QWidget *parent, const QString &text)
{
    for (QPushButton *candidate : parent->findChildren<QPushButton *>()) {
        if (candidate->text() == text)
            return candidate;
    }
    return nullptr;
}

void press(QWidget *parent, const QString &text)
{
    QPushButton *const target = button(parent, text);
    QVERIFY2(target, qPrintable(text));
    QTest::mouseClick(target, Qt::LeftButton);
}

struct Box {
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QString title;
    QString text;
    QMessageBox::StandardButtons buttons;
    QWidget *parent = nullptr;
};

// Notes and confirms every message box, and answers every file dialog, while it lives.
class User : public QObject {
public:
    std::function<void(QFileDialog *)> answerFileDialog;
    QList<Box> boxes;
    int fileDialogs = 0;

    User()
    {
        connect(&m_timer, &QTimer::timeout, this, &User::look);
        m_timer.start(10);
    }

private:
    void look()
    {
        QWidget *const modal = QApplication::activeModalWidget();
        if (!modal || !modal->isVisible() || m_busy)
            return;
        m_busy = true;
        if (auto *box = qobject_cast<QMessageBox *>(modal)) {
            boxes.append({box->icon(), box->windowTitle(), box->text(), box->standardButtons(),
                          box->parentWidget()});
            QTest::mouseClick(box->button(QMessageBox::Ok), Qt::LeftButton);
        } else if (auto *files = qobject_cast<QFileDialog *>(modal)) {
            ++fileDialogs;
            answerFileDialog(files);
        }
        m_busy = false;
    }

    QTimer m_timer;
    bool m_busy = false;
};

void choose(QFileDialog *dialog, const QString &path)
{
    auto *const name = dialog->findChild<QLineEdit *>();
    name->setText(path);
    QTest::keyClick(name, Qt::Key_Return);
}

} // namespace

class TestErrorReportDialog : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void looksAsDescribed();
    void copyTwice();
    void saveIsTheReportByteForByte();
    void saveIsUtf8InEveryLocale();
    void saveProposesAFileName();
    void saveReplacesALongerFile();
    void saveToAReadOnlyPlaceWarns();
    void cancelledSaveDoesNothing();
    void closeButtonEndsExec();
    void windowCloseEndsExec();
    void hundredsOfLinesKeepTheirBreaks();
    void longLinesScrollInsteadOfWrapping();

private:
    ErrorReportDialog *m_dialog = nullptr;
};

void TestErrorReportDialog::initTestCase()
{
    QVERIFY2(dialogCanBeSeen(), qPrintable(QGuiApplication::platformName()));
}

void TestErrorReportDialog::init()
{
    QGuiApplication::clipboard()->clear();
    m_dialog = new ErrorReportDialog(kReport);
    m_dialog->setModal(true);
    m_dialog->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_dialog));
}

void TestErrorReportDialog::cleanup()
{
    delete m_dialog;
}

void TestErrorReportDialog::looksAsDescribed()
{
    QCOMPARE(m_dialog->windowTitle(), QStringLiteral("错误报告 - Quillory音频服务程序"));
    QCOMPARE(m_dialog->minimumSize(), QSize(700, 500));
    QVERIFY(!(m_dialog->windowFlags() & Qt::WindowContextHelpButtonHint));
    QCOMPARE(m_dialog->windowFlags() | Qt::WindowContextHelpButtonHint,
             QDialog().windowFlags() | Qt::WindowContextHelpButtonHint);

    auto *const layout = qobject_cast<QVBoxLayout *>(m_dialog->layout());
    QVERIFY(layout);
    QCOMPARE(layout->count(), 4);
    auto *const heading = qobject_cast<QLabel *>(layout->itemAt(0)->widget());
    QVERIFY(heading);
    QCOMPARE(heading->text(), QStringLiteral("程序遇到错误并需要关闭。以下是错误报告信息："));
    QCOMPARE(heading->styleSheet(), QStringLiteral("font-weight: bold; color: #d32f2f;"));
    auto *const hint = qobject_cast<QLabel *>(layout->itemAt(1)->widget());
    QVERIFY(hint);
    QCOMPARE(hint->text(),
             QStringLiteral("请复制以下信息并发送给开发者或官方客服以帮助识别问题："));

    auto *const view = qobject_cast<QTextEdit *>(layout->itemAt(2)->widget());
    QVERIFY(view);
    QVERIFY(view->isReadOnly());
    QCOMPARE(view->toPlainText(), kReport);
    QCOMPARE(view->lineWrapMode(), QTextEdit::NoWrap);
    QCOMPARE(view->font().families(),
             QStringList({QStringLiteral("Microsoft YaHei UI"), QStringLiteral("SimSun"),
                          QStringLiteral("Consolas"), QStringLiteral("monospace")}));
    QCOMPARE(view->font().pointSize(), 10);
    const QFont fixed(QStringLiteral("monospace"));
    if (QFontDatabase().hasFamily(QStringLiteral("Consolas")) || QFontInfo(fixed).fixedPitch())
        QVERIFY2(QFontInfo(view->font()).fixedPitch(),
                 qPrintable(QFontInfo(view->font()).family()));

    auto *const row = qobject_cast<QHBoxLayout *>(layout->itemAt(3)->layout());
    QVERIFY(row);
    QCOMPARE(row->count(), 4);
    QCOMPARE(row->itemAt(0)->widget(), button(m_dialog, QStringLiteral("复制到剪贴板")));
    QCOMPARE(row->itemAt(1)->widget(), button(m_dialog, QStringLiteral("保存到文件")));
    QVERIFY(row->itemAt(2)->spacerItem());
    QCOMPARE(row->itemAt(3)->widget(), button(m_dialog, QStringLiteral("关闭")));
}

void TestErrorReportDialog::copyTwice()
{
    User user;
    for (int time = 1; time <= 2; ++time) {
        QGuiApplication::clipboard()->clear();
        press(m_dialog, QStringLiteral("复制到剪贴板"));
        QCOMPARE(QGuiApplication::clipboard()->text(QClipboard::Clipboard), kReport);
        QCOMPARE(user.boxes.size(), time);
        QCOMPARE(user.boxes.last().icon, QMessageBox::Information);
        QCOMPARE(user.boxes.last().title, QStringLiteral("提示"));
        QCOMPARE(user.boxes.last().text, QStringLiteral("错误报告已复制到剪贴板"));
        QCOMPARE(user.boxes.last().buttons, QMessageBox::Ok);
        QCOMPARE(user.boxes.last().parent, m_dialog);
        QVERIFY(m_dialog->isVisible());
    }
}

void TestErrorReportDialog::saveIsTheReportByteForByte()
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("报告.txt"));
    User user;
    user.answerFileDialog = [&path](QFileDialog *dialog) { choose(dialog, path); };
    press(m_dialog, QStringLiteral("保存到文件"));

    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), textFile(kReport));
    QCOMPARE(user.boxes.size(), 1);
    QCOMPARE(user.boxes.first().icon, QMessageBox::Information);
    QCOMPARE(user.boxes.first().title, QStringLiteral("提示"));
    QCOMPARE(user.boxes.first().text, QStringLiteral("错误报告已保存到：") + path);
    QCOMPARE(user.boxes.first().buttons, QMessageBox::Ok);
    QVERIFY(m_dialog->isVisible());
}

void TestErrorReportDialog::saveIsUtf8InEveryLocale()
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("report.txt"));
    User user;
    user.answerFileDialog = [&path](QFileDialog *dialog) { choose(dialog, path); };
    {
        const LocalEncoding encoding("ISO-8859-1");
        press(m_dialog, QStringLiteral("保存到文件"));
    }
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), textFile(kReport));
}

void TestErrorReportDialog::saveProposesAFileName()
{
    QString name;
    QString caption;
    QStringList filters;
    QWidget *parent = nullptr;
    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    User user;
    user.answerFileDialog = [&](QFileDialog *dialog) {
        name = dialog->findChild<QLineEdit *>()->text();
        caption = dialog->windowTitle();
        filters = dialog->nameFilters();
        parent = dialog->parentWidget();
        dialog->reject();
    };
    press(m_dialog, QStringLiteral("保存到文件"));
    const auto match =
        QRegularExpression(QStringLiteral("^错误报告_(\\d{8}_\\d{6})\\.txt$")).match(name);
    QVERIFY2(match.hasMatch(), qPrintable(name));
    const QDateTime time =
        QDateTime::fromString(match.captured(1), QStringLiteral("yyyyMMdd_HHmmss"));
    QVERIFY(time >= before && time <= QDateTime::currentDateTime());
    QCOMPARE(caption, QStringLiteral("保存错误报告"));
    QCOMPARE(filters,
             QStringList({QStringLiteral("文本文件 (*.txt)"), QStringLiteral("所有文件 (*.*)")}));
    QCOMPARE(parent, m_dialog);
}

void TestErrorReportDialog::saveReplacesALongerFile()
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("report.txt"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(10000, 'x'));
    file.close();
    User user;
    user.answerFileDialog = [&path](QFileDialog *dialog) {
        // The question whether to replace it is not the subject here.
        dialog->setOption(QFileDialog::DontConfirmOverwrite);
        choose(dialog, path);
    };
    press(m_dialog, QStringLiteral("保存到文件"));
    QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Text));
    QCOMPARE(file.readAll(), kReport.toUtf8());
}

void TestErrorReportDialog::saveToAReadOnlyPlaceWarns()
{
    // Nobody creates files in a file, not even the administrator.
    QTemporaryFile place;
    QVERIFY(place.open());
    User user;
    user.answerFileDialog = [&place](QFileDialog *dialog) {
        choose(dialog, place.fileName() + QStringLiteral("/report.txt"));
    };
    press(m_dialog, QStringLiteral("保存到文件"));
    QCOMPARE(user.fileDialogs, 1);
    QCOMPARE(user.boxes.size(), 1);
    QCOMPARE(user.boxes.first().icon, QMessageBox::Warning);
    QCOMPARE(user.boxes.first().title, QStringLiteral("错误"));
    QCOMPARE(user.boxes.first().text, QStringLiteral("无法保存文件"));
    QCOMPARE(user.boxes.first().buttons, QMessageBox::Ok);
    QVERIFY(m_dialog->isVisible());
}

void TestErrorReportDialog::cancelledSaveDoesNothing()
{
    QTemporaryDir folder;
    QVERIFY(QDir::setCurrent(folder.path()));
    User user;
    user.answerFileDialog = [](QFileDialog *dialog) { dialog->reject(); };
    press(m_dialog, QStringLiteral("保存到文件"));
    QCOMPARE(user.fileDialogs, 1);
    QVERIFY(user.boxes.isEmpty());
    QVERIFY(m_dialog->isVisible());
    QCOMPARE(QDir().entryList(QDir::Files), QStringList());
    QDir::setCurrent(QDir::tempPath());
}

void TestErrorReportDialog::closeButtonEndsExec()
{
    m_dialog->hide();
    QTimer::singleShot(0, this, [this] { press(m_dialog, QStringLiteral("关闭")); });
    QCOMPARE(m_dialog->exec(), static_cast<int>(QDialog::Accepted));
    QVERIFY(!m_dialog->isVisible());
}

void TestErrorReportDialog::windowCloseEndsExec()
{
    m_dialog->hide();
    QTimer::singleShot(0, this, [this] { m_dialog->close(); });
    QCOMPARE(m_dialog->exec(), static_cast<int>(QDialog::Rejected));
    QVERIFY(!m_dialog->isVisible());
}

void TestErrorReportDialog::hundredsOfLinesKeepTheirBreaks()
{
    QString report;
    for (int i = 0; i < 600; ++i)
        report += QStringLiteral("line %1\n").arg(i);
    ErrorReportDialog dialog(report);
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    auto *const view = dialog.findChild<QTextEdit *>();
    QCOMPARE(view->toPlainText(), report);
    QCOMPARE(view->document()->blockCount(), 601);
    QVERIFY(view->verticalScrollBar()->maximum() > 0);
    QCOMPARE(view->horizontalScrollBar()->maximum(), 0);
}

void TestErrorReportDialog::longLinesScrollInsteadOfWrapping()
{
    ErrorReportDialog dialog(QString(QStringLiteral("word ")).repeated(400));
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    auto *const view = dialog.findChild<QTextEdit *>();
    QVERIFY(view->horizontalScrollBar()->maximum() > 0);
    QCOMPARE(view->document()->firstBlock().layout()->lineCount(), 1);
}

int main(int argc, char **argv)
{
    QApplication::setAttribute(Qt::AA_DontUseNativeDialogs); // they could not be operated from here
    QApplication application(argc, argv);
    TestErrorReportDialog test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_errorreportdialog.moc"
