#include "tools/monitor/layeredwidget.h"

#include <QEvent>
#include <QPainter>

void LayeredWidget::copy(QPainter *painter, const QRect &part, Layer layer)
{
    if (part.isEmpty())
        return;
    const QPixmap &pixmap = *picture(layer);
    const qreal ratio = pixmap.devicePixelRatioF();
    painter->drawPixmap(
        QRectF(part), pixmap,
        QRectF(part.x() * ratio, part.y() * ratio, part.width() * ratio, part.height() * ratio));
}

QPixmap *LayeredWidget::picture(Layer layer)
{
    QPixmap &pixmap = m_layers[layer];
    if (pixmap.isNull() || !qFuzzyCompare(pixmap.devicePixelRatioF(), devicePixelRatioF())) {
        const qreal ratio = devicePixelRatioF();
        pixmap = QPixmap(size() * ratio);
        pixmap.setDevicePixelRatio(ratio);
        QPainter layerPainter(&pixmap);
        layerPainter.setFont(font());
        paintLayer(&layerPainter, layer);
    }
    return &pixmap;
}

void LayeredWidget::startAnew()
{
    arrange();
    for (QPixmap &layer : m_layers)
        layer = QPixmap();
    update();
}

void LayeredWidget::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    startAnew();
}

void LayeredWidget::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    switch (event->type()) {
    case QEvent::PaletteChange:
    case QEvent::FontChange:
    case QEvent::StyleChange:
        startAnew();
        break;
    default:
        break;
    }
}

bool LayeredWidget::isDark() const
{
    return palette().color(QPalette::Window).lightness()
        < palette().color(QPalette::WindowText).lightness();
}
