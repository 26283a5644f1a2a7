#pragma once

#include <Vistrel/vistrel_export.h>

#include <QEvent>
#include <QObject>
#include <QPointF>
#include <QPointer>
#include <QWidget>

#include <optional>

namespace VistrelKit {

/// Sees the user's taps on one widget window on their way to its widgets, never consuming them:
/// a press and its release within the drag distance is a tap, reported in the window's device
/// pixels. A tap on a popup shown over the window (a menu, a combo box's list) counts, at its
/// place on the window: the agent sees the popup in the screenshot.
class VISTREL_AUTOTEST_EXPORT WidgetTapWatcher : public QObject
{
    Q_OBJECT
public:
    explicit WidgetTapWatcher(QObject *parent = nullptr);
    ~WidgetTapWatcher() override;

    /// Watches window instead of the one before; null watches none.
    void watch(QWidget *window);
    QWidget *window() const { return m_root; }

Q_SIGNALS:
    void tapped(const QPointF &devicePixels);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QPointer<QWidget> m_root;
    std::optional<QPointF> m_pressInRoot;
    QEvent::Type m_lastEventType = QEvent::None;
    quint64 m_lastEventTimestamp = 0;
};

} // namespace VistrelKit
