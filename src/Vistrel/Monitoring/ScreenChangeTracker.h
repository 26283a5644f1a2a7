#pragma once

#include <Vistrel/vistrel_export.h>

#include <QObject>

#include <utility>

namespace VistrelKit {

/// Notes, from the application's events, whether anything the agent could see may have changed:
/// a window painted or was exposed, or a window (a dialog, a popup, a tool tip) was shown,
/// hidden, moved or resized. A screenshot tick with nothing noted has nothing new to capture.
class VISTREL_AUTOTEST_EXPORT ScreenChangeTracker : public QObject
{
    Q_OBJECT
public:
    explicit ScreenChangeTracker(QObject *parent = nullptr);
    ~ScreenChangeTracker() override;

    /// Watches the application's events until stop(); counts as a change.
    void start();
    void stop();
    /// Whether anything changed since the last call.
    bool takeChanged() { return std::exchange(m_changed, false); }

Q_SIGNALS:
    /// A page of a QStackedWidget (QTabWidget's pages are in one) was shown: the screen's name
    /// may have changed.
    void pageShown();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool m_changed = false;
};

} // namespace VistrelKit
