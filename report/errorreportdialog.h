// The window in which a user reads, copies or saves an error report.
#pragma once

#include <QDialog>

/// Shows a finished report until it is closed. GUI thread only; opened by the report sink.
class ErrorReportDialog : public QDialog {
    Q_OBJECT

public:
    explicit ErrorReportDialog(const QString &report, QWidget *parent = nullptr);

private:
    void copyReport();
    void saveReport();

    const QString m_report;
};
