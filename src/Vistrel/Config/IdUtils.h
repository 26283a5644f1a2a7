#pragma once

#include <Vistrel/vistrel_export.h>

#include <QString>

namespace VistrelKit {

/// Identifiers: random UUIDs and the per-installation device identifier.
class VISTREL_AUTOTEST_EXPORT IdUtils
{
public:
    /// A random UUID in upper-case canonical form, without braces.
    static QString newUuid();
    /// A UUID created on first use and kept in the app's data location, so it stays the same for
    /// an installation. Stops the process when it can be neither read nor stored.
    static QString vendorId();
    /// The file that holds the device identifier.
    static QString vendorIdFile();
};

} // namespace VistrelKit
