#pragma once

#include <Vistrel/vistrel_export.h>

#include <QString>

namespace VistrelKit {

/// Returned by Orvane::initConfig() so that custom hosts can be chained.
class VISTREL_EXPORT InitConfiguration
{
public:
    /// Sets the host of the transport, chat and health URLs (and the CDN path while unset).
    InitConfiguration &withCustomServer(const QString &hostname);
    /// Sets the CDN path to "<HttpProtocol>://<cdnServer>/cdn".
    InitConfiguration &withCustomCdnServer(const QString &cdnServer);
};

} // namespace VistrelKit
