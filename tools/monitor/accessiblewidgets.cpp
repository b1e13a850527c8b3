#include "tools/monitor/accessiblewidgets.h"

#include "tools/monitor/levelmeters.h"
#include "tools/monitor/meterscale.h"
#include "tools/monitor/monitorwindow.h"
#include "tools/monitor/spectrumplot.h"
#include "tools/monitor/statusline.h"

#include <array>
#include <QAccessible>
#include <QAccessibleWidget>
#include <QCoreApplication>

namespace {

/// One meter: a value from 0 to 1, full scale, that can only be read. It tells of no change; fifty
/// a second are no news.
class AccessibleMeter : public QAccessibleInterface, public QAccessibleValueInterface {
public:
    AccessibleMeter(LevelMeters *meters, int index)
        : m_meters(meters)
        , m_index(index)
    {
    }

    bool isValid() const override { return true; } // it ends with the meters
    QObject *object() const override { return nullptr; }
    QAccessibleInterface *parent() const override
    {
        return QAccessible::queryAccessibleInterface(m_meters);
    }
    QAccessibleInterface *child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface *) const override { return -1; }
    QAccessibleInterface *childAt(int, int) const override { return nullptr; }

    QString text(QAccessible::Text kind) const override
    {
        switch (kind) {
        case QAccessible::Name:
            return levelName(m_index);
        case QAccessible::Value:
            return m_meters->number(m_index);
        default:
            return {};
        }
    }
    void setText(QAccessible::Text, const QString &) override { }
    QRect rect() const override
    {
        const QRect area = m_meters->meterArea(m_index);
        return {m_meters->mapToGlobal(area.topLeft()), area.size()};
    }
    QAccessible::Role role() const override { return QAccessible::ProgressBar; }
    QAccessible::State state() const override
    {
        QAccessible::State state;
        state.readOnly = true;
        state.invisible = !m_meters->isVisible();
        return state;
    }

    void *interface_cast(QAccessible::InterfaceType type) override
    {
        return type == QAccessible::ValueInterface ? static_cast<QAccessibleValueInterface *>(this)
                                                   : nullptr;
    }
    QVariant currentValue() const override { return m_meters->number(m_index).toDouble(); }
    void setCurrentValue(const QVariant &) override { }
    QVariant maximumValue() const override { return 1.0; }
    QVariant minimumValue() const override { return 0.0; }
    QVariant minimumStepSize() const override { return 0.0; }

private:
    LevelMeters *const m_meters;
    const int m_index;
};

class AccessibleMeters : public QAccessibleWidget {
    Q_DECLARE_TR_FUNCTIONS(AccessibleWidgets)

public:
    explicit AccessibleMeters(LevelMeters *meters)
        : QAccessibleWidget(meters, QAccessible::Grouping)
    {
        for (int i = 0; i < LevelMeters::kCount; ++i)
            m_ids.at(static_cast<std::size_t>(i)) =
                QAccessible::registerAccessibleInterface(new AccessibleMeter(meters, i));
    }
    ~AccessibleMeters() override
    {
        for (const QAccessible::Id id : m_ids)
            QAccessible::deleteAccessibleInterface(id);
    }

    int childCount() const override { return LevelMeters::kCount; }
    QAccessibleInterface *child(int index) const override
    {
        return index >= 0 && index < LevelMeters::kCount
            ? QAccessible::accessibleInterface(m_ids.at(static_cast<std::size_t>(index)))
            : nullptr;
    }
    int indexOfChild(const QAccessibleInterface *wanted) const override
    {
        for (int i = 0; i < LevelMeters::kCount; ++i) {
            if (child(i) == wanted)
                return i;
        }
        return -1;
    }
    QAccessibleInterface *childAt(int x, int y) const override
    {
        for (int i = 0; i < LevelMeters::kCount; ++i) {
            if (child(i)->rect().contains(x, y))
                return child(i);
        }
        return nullptr;
    }
    QString text(QAccessible::Text kind) const override
    {
        return kind == QAccessible::Name ? tr("Levels") : QAccessibleWidget::text(kind);
    }

private:
    std::array<QAccessible::Id, LevelMeters::kCount> m_ids {};
};

class AccessiblePlot : public QAccessibleWidget {
    Q_DECLARE_TR_FUNCTIONS(AccessibleWidgets)

public:
    explicit AccessiblePlot(SpectrumPlot *plot)
        : QAccessibleWidget(plot, QAccessible::Chart)
        , m_plot(plot)
    {
    }

    QString text(QAccessible::Text kind) const override
    {
        switch (kind) {
        case QAccessible::Name:
            return tr("Spectrum");
        case QAccessible::Description:
            return m_plot->summary();
        default:
            return QAccessibleWidget::text(kind);
        }
    }

private:
    SpectrumPlot *const m_plot;
};

class AccessibleStatus : public QAccessibleWidget {
public:
    explicit AccessibleStatus(StatusLine *status)
        : QAccessibleWidget(status, QAccessible::StaticText)
        , m_status(status)
    {
    }

    QString text(QAccessible::Text kind) const override
    {
        return kind == QAccessible::Name ? m_status->text() : QAccessibleWidget::text(kind);
    }

private:
    StatusLine *const m_status;
};

QAccessibleInterface *makeInterface(const QString &, QObject *object)
{
    if (auto *const window = qobject_cast<MonitorWindow *>(object))
        return new QAccessibleWidget(window, QAccessible::Window);
    if (auto *const meters = qobject_cast<LevelMeters *>(object))
        return new AccessibleMeters(meters);
    if (auto *const plot = qobject_cast<SpectrumPlot *>(object))
        return new AccessiblePlot(plot);
    if (auto *const status = qobject_cast<StatusLine *>(object))
        return new AccessibleStatus(status);
    return nullptr;
}

} // namespace

void installAccessibleWidgets()
{
    QAccessible::installFactory(makeInterface);
}
