#pragma once

#include <QPixmap>
#include <QWidget>

/// A widget whose picture is made of layers that are painted once for each size and palette and
/// then only copied: what is empty, what is full, and, put together of these two, what is shown
/// now. Drawing fifty times a second is then cheap.
class LayeredWidget : public QWidget {
    Q_OBJECT

public:
    using QWidget::QWidget;

protected:
    enum Layer {
        Empty,
        Full,
        Now ///< for widgets that keep it: its paintLayer copies the other two
    };

    /// Finds out where everything is: called for each new size, font and palette, before anything
    /// is painted, since measuring text is what costs most here.
    virtual void arrange() = 0;

    /// Paints a whole layer, opaque, in the widget's coordinates.
    virtual void paintLayer(QPainter *painter, Layer layer) = 0;

    /// Copies the part of a layer that is under the rectangle.
    void copy(QPainter *painter, const QRect &part, Layer layer);

    /// The layer's picture, painted if it was not yet. It can be painted on.
    QPixmap *picture(Layer layer);

    /// Arranges and paints everything anew.
    void startAnew();

    void resizeEvent(QResizeEvent *event) override;
    void changeEvent(QEvent *event) override;

    /// True when the palette is one of light text on a dark ground.
    bool isDark() const;

private:
    QPixmap m_layers[3];
};
