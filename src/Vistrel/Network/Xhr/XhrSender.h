#pragma once

#include <Vistrel/vistrel_export.h>

#include <QString>

namespace VistrelKit {

struct ApplicationConfig;

/// Builds the URL of the HTTP report channel.
class VISTREL_AUTOTEST_EXPORT XhrSender
{
public:
    /// "<HttpProtocol>://<hostname>/api/ix/m?id=<visit>&sId=&tId=&vId=<visitor>&url=&fsTy=",
    /// values inserted as they are (absent ones empty).
    static QString buildUrl(const ApplicationConfig &config, const QString &url);
};

} // namespace VistrelKit
