#pragma once

#include <Vistrel/vistrel_export.h>

#include <QObject>
#include <QPointer>
#include <QQuickItem>

#include <functional>

namespace VistrelKit {

/// The answer to the opt-in question of a Qt Quick window (the kit's OptInDialog.qml item). It
/// lives as the item's child: answered once, true on accept, false on decline, on decline() or
/// when the item goes with its window; the item goes with the answer.
class VISTREL_AUTOTEST_EXPORT QuickOptInQuestion : public QObject
{
    Q_OBJECT
public:
    QuickOptInQuestion(QQuickItem *dialog, std::function<void(bool)> answered);
    ~QuickOptInQuestion() override;

public Q_SLOTS:
    void accept();
    void decline();

private:
    void answer(bool accepted);

    QPointer<QQuickItem> m_dialog;
    std::function<void(bool)> m_answered;
};

} // namespace VistrelKit
