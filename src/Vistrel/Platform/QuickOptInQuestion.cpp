#include "Platform/QuickOptInQuestion.h"

#include "Quick/QuickViewUtils.h"

#include <utility>

namespace VistrelKit {

QuickOptInQuestion::QuickOptInQuestion(QQuickItem *dialog, std::function<void(bool)> answered)
    : QObject(dialog)
    , m_dialog(dialog)
    , m_answered(std::move(answered))
{
    // QML signals are known by name only.
    connect(dialog, SIGNAL(accepted()), this, SLOT(accept()));
    connect(dialog, SIGNAL(rejected()), this, SLOT(decline()));
}

QuickOptInQuestion::~QuickOptInQuestion()
{
    if (auto answered = std::exchange(m_answered, nullptr))
        answered(false);
}

void QuickOptInQuestion::accept()
{
    answer(true);
}

void QuickOptInQuestion::decline()
{
    answer(false);
}

void QuickOptInQuestion::answer(bool accepted)
{
    auto answered = std::exchange(m_answered, nullptr);
    QuickViewUtils::removeFromWindow(m_dialog);
    if (answered)
        answered(accepted);
}

} // namespace VistrelKit
