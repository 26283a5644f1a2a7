#include "Network/Bidirectional/BidirectionalMessageHandler.h"

#include "Core/Log.h"
#include "Monitoring/ClickUtil.h"
#include "Monitoring/ViewUtils.h"

#include <QWidget>
#include <QtMath>

using namespace Qt::StringLiterals;

namespace VistrelKit {

BidirectionalMessageHandler::BidirectionalMessageHandler(
    ApplicationConfigWrapper *applicationConfig, UIStrings *uiStrings, QObject *parent)
    : QObject(parent)
    , m_applicationConfig(applicationConfig)
    , m_uiStrings(uiStrings)
{}

void BidirectionalMessageHandler::handle(const BidirectionalMessage &message)
{
    Log::debug(u"Handle message: "_s + message.toString());
    if (message.click)
        click(*message.click);
}

void BidirectionalMessageHandler::click(const BidirectionalMessage::Click &click)
{
    ViewUtils::withTopViewController([click](QWidget *controller) {
        // Device pixels to the window's own units, through single precision as the agent's
        // numbers travel.
        const qreal scale = controller->devicePixelRatioF();
        const QPointF point(qreal(float(click.x)) / scale, qreal(float(click.y)) / scale);
        // The unit that holds the device pixel: rounding would move half a unit right and down.
        const QPoint position(qFloor(point.x()), qFloor(point.y()));
        QWidget *hit = ClickUtil::hitTest(controller, position);
        if (!hit) {
            Log::warning(u"View not found"_s);
            return;
        }
        ClickUtil::click(hit, hit->mapFrom(controller, position));
    });
}

} // namespace VistrelKit
