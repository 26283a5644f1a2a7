#include <Vistrel/OrvaneCoBrowsing.h>

#include "Config/ApplicationConfigWrapper.h"
#include "Core/Log.h"
#include "Facade/Kit.h"
#include "Session/CoBrowsing.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
CoBrowsing *controller()
{
    auto *coBrowsing = Kit::container().resolve<CoBrowsing>();
    if (!coBrowsing)
        Log::error(u"Cannot get CoBrowsing instance"_s);
    return coBrowsing;
}

ErrorCompletion logFailure(const QString &prefix)
{
    return [prefix](const std::optional<Error> &error) {
        if (error)
            Log::error(prefix + error->description());
    };
}
} // namespace

void OrvaneCoBrowsing::start()
{
    if (CoBrowsing *coBrowsing = controller())
        coBrowsing->start(std::nullopt, logFailure(u"Error while starting CoBrowsing: "_s));
}

void OrvaneCoBrowsing::start(const QString &tenantId, const QString &token)
{
    CoBrowsing *coBrowsing = controller();
    if (!coBrowsing)
        return;
    if (auto *wrapper = Kit::container().resolveOrLog<ApplicationConfigWrapper>()) {
        wrapper->config().tenantId = tenantId;
        wrapper->config().token = token;
    }
    coBrowsing->start(std::nullopt, logFailure(u"Starting CoBrowsing failed: "_s));
}

void OrvaneCoBrowsing::stop()
{
    if (CoBrowsing *coBrowsing = controller())
        coBrowsing->stop();
}

bool OrvaneCoBrowsing::isShown() const
{
    CoBrowsing *coBrowsing = controller();
    // Off its window means gone, even before it is deleted.
    const QObject *visual =
        coBrowsing && coBrowsing->view() ? coBrowsing->view()->visual() : nullptr;
    return visual && visual->parent();
}

} // namespace VistrelKit
