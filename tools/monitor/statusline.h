#pragma once

#include <QWidget>

/// A line of text that is never cut: where it has no room in one line it takes as many as it needs,
/// and the window grows with it. Made for a text that changes many times a second: a number that
/// becomes a digit shorter moves nothing.
class StatusLine : public QWidget {
    Q_OBJECT

public:
    explicit StatusLine(QWidget *parent = nullptr);

    /// Plain text.
    void setText(const QString &text);
    const QString &text() const { return m_text; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

    /// What the text fills in the widget's width.
    QRect textArea() const;

protected:
    void resizeEvent(QResizeEvent *event) override;
    void changeEvent(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void arrange();
    QRect areaOf(const QString &text) const;

    QString m_text;
    int m_height = 0;
};
