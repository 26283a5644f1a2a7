#pragma once

#include <Vistrel/vistrel_export.h>

#include <QObject>
#include <QPointF>
#include <QPointer>
#include <QQuickWindow>

#include <optional>

namespace VistrelKit {

/// Sees the user's taps on one Qt Quick window on their way in, never consuming them: a press
/// and its release within the drag distance is a tap, reported in the window's device pixels.
class VISTREL_AUTOTEST_EXPORT QuickTapWatcher : public QObject
{
    Q_OBJECT
public:
    explicit QuickTapWatcher(QObject *parent = nullptr);

    /// Watches window instead of the one before; null watches none.
    void watch(QQuickWindow *window);
    QQuickWindow *window() const { return m_window; }

Q_SIGNALS:
    void tapped(const QPointF &devicePixels);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QPointer<QQuickWindow> m_window;
    std::optional<QPointF> m_press;
};

} // namespace VistrelKit
