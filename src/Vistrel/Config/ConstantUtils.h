#pragma once

#include <Vistrel/vistrel_export.h>

#include <QString>

#include <optional>

namespace VistrelKit {

/// Reads the kit's config file: the keys "Hostname", "CdnHostname", "HttpProtocol" and
/// "WebSocketProtocol" of a JSON object.
///
/// The file is, in this order: the one given to setConfigFile(), the one named by the
/// environment variable VISTREL_CONFIG, or the default built into the kit
/// (":/vistrel/Config.json").
class VISTREL_AUTOTEST_EXPORT ConstantUtils
{
public:
    /// The string value of a key, or nothing when the file or the key is missing.
    static std::optional<QString> getProperty(const QString &key);
    /// Uses another config file from now on (read on the next getProperty()).
    static void setConfigFile(const QString &path);
    /// The file getProperty() reads.
    static QString configFile();
};

} // namespace VistrelKit
