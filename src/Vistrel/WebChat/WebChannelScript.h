#pragma once

#include <Vistrel/vistrel_export.h>

#include <QString>

namespace VistrelKit {

/// Qt's qwebchannel.js, which a page needs to reach the kit's objects over a QWebChannel.
class VISTREL_PRIVATE_EXPORT WebChannelScript
{
public:
    WebChannelScript() = delete;

    /// The script's text, read once from Qt WebChannel's resources.
    static QString source();
};

} // namespace VistrelKit
