#include "report/errorreportdialog.h"

#include <QClipboard>
#include <QDateTime>
#include <QFile>
#include <QFileDialog>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTextEdit>
#include <QVBoxLayout>

ErrorReportDialog::ErrorReportDialog(const QString &report, QWidget *parent)
    : QDialog(parent)
    , m_report(report)
{
    setWindowTitle(QStringLiteral("错误报告 - Quillory音频服务程序"));
    setMinimumSize(700, 500);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);

    auto *heading =
        new QLabel(QStringLiteral("程序遇到错误并需要关闭。以下是错误报告信息："), this);
    heading->setStyleSheet(QStringLiteral("font-weight: bold; color: #d32f2f;"));

    auto *hint =
        new QLabel(QStringLiteral("请复制以下信息并发送给开发者或官方客服以帮助识别问题："), this);

    auto *view = new QTextEdit(this);
    view->setReadOnly(true);
    view->setLineWrapMode(QTextEdit::NoWrap);
    QFont font;
    font.setFamilies({QStringLiteral("Microsoft YaHei UI"), QStringLiteral("SimSun"),
                      QStringLiteral("Consolas"), QStringLiteral("monospace")});
    font.setStyleHint(QFont::Monospace); // where the system lacks all of them
    font.setPointSize(10);
    view->setFont(font);
    view->setPlainText(report);

    auto *copy = new QPushButton(QStringLiteral("复制到剪贴板"), this);
    auto *save = new QPushButton(QStringLiteral("保存到文件"), this);
    auto *close = new QPushButton(QStringLiteral("关闭"), this);
    connect(copy, &QPushButton::clicked, this, &ErrorReportDialog::copyReport);
    connect(save, &QPushButton::clicked, this, &ErrorReportDialog::saveReport);
    connect(close, &QPushButton::clicked, this, &QDialog::accept);

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(copy);
    buttons->addWidget(save);
    buttons->addStretch();
    buttons->addWidget(close);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(heading);
    layout->addWidget(hint);
    layout->addWidget(view);
    layout->addLayout(buttons);
}

void ErrorReportDialog::copyReport()
{
    QGuiApplication::clipboard()->setText(m_report, QClipboard::Clipboard);
    QMessageBox::information(this, QStringLiteral("提示"), QStringLiteral("错误报告已复制到剪贴板"),
                             QMessageBox::Ok);
}

void ErrorReportDialog::saveReport()
{
    const QString now = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd_HHmmss"));
    const QString path = QFileDialog::getSaveFileName(
        this, QStringLiteral("保存错误报告"), QStringLiteral("错误报告_%1.txt").arg(now),
        QStringLiteral("文本文件 (*.txt);;所有文件 (*.*)"));
    if (path.isEmpty())
        return;

    const QByteArray text = m_report.toUtf8();
    QFile file(path);
    const bool written = file.open(QIODevice::WriteOnly | QIODevice::Text | QIODevice::Truncate)
        && file.write(text) == text.size() && file.flush();
    file.close(); // some file systems say only now that there was no room
    if (!written || file.error() != QFileDevice::NoError) {
        QMessageBox::warning(this, QStringLiteral("错误"), QStringLiteral("无法保存文件"),
                             QMessageBox::Ok);
        return;
    }
    QMessageBox::information(this, QStringLiteral("提示"),
                             QStringLiteral("错误报告已保存到：%1").arg(path), QMessageBox::Ok);
}
