#include <Vistrel/OrvaneCoBrowsing.h>

#include "CoBrowsing/CoBrowsing.h"
#include "CoBrowsing/DefaultUIView.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Core/Injection.h"
#include "Core/Log.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
CoBrowsing *controller()
{
    auto *coBrowsing = Injection::getContainer().resolve<CoBrowsing>();
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
    if (auto *wrapper = Injection::getContainer().resolveOrLog<ApplicationConfigWrapper>()) {
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
    return coBrowsing && coBrowsing->view() && coBrowsing->view()->parentWidget();
}

} // namespace VistrelKit
