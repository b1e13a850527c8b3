#include "tools/monitor/statusline.h"

#include <algorithm>
#include <QAccessible>
#include <QEvent>
#include <QPainter>

namespace {

// A path has no words, but must be seen, too.
constexpr int kFlags = Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap | Qt::TextWrapAnywhere;
constexpr int kEndless = 100000; ///< pixels, of room below

} // namespace

StatusLine::StatusLine(QWidget *parent)
    : QWidget(parent)
{
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
}

void StatusLine::setText(const QString &text)
{
    if (text == m_text)
        return;
    m_text = text;
    arrange();
    update();
    if (QAccessible::isActive()) {
        QAccessibleEvent event(this, QAccessible::NameChanged);
        QAccessible::updateAccessibility(&event);
    }
}

QSize StatusLine::sizeHint() const
{
    return {0, m_height};
}

QRect StatusLine::textArea() const
{
    return areaOf(m_text);
}

QRect StatusLine::areaOf(const QString &text) const
{
    return fontMetrics().boundingRect({0, 0, width(), kEndless}, kFlags, text);
}

void StatusLine::arrange()
{
    const int needed = std::max(areaOf(m_text).height(), fontMetrics().height());
    if (needed == m_height)
        return;
    // Lower only if that lasts for longer numbers, too.
    if (needed < m_height && areaOf(m_text + QStringLiteral(" 0000")).height() >= m_height)
        return;
    m_height = needed;
    updateGeometry();
}

void StatusLine::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    arrange();
}

void StatusLine::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange)
        arrange();
}

void StatusLine::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawText(rect(), kFlags, m_text);
}
