#pragma once

#include <QString>
#include <QTemporaryDir>

#include <optional>

namespace VistrelKit {
class ServiceHost;
}

/// Writes a kit config file and makes the kit read it; points the kit's server at host. Also
/// switches QStandardPaths to test mode.
class TestConfig
{
public:
    /// Each value left empty is left out of the file.
    static void use(const QString &host,
                    const std::optional<QString> &httpProtocol = QStringLiteral("http"),
                    const std::optional<QString> &webSocketProtocol = QStringLiteral("ws"),
                    const std::optional<QString> &cdnHost = std::nullopt);

    /// The host that use() points at, for API objects a suite builds itself.
    static VistrelKit::ServiceHost *serviceHost();

private:
    static QTemporaryDir &directory();
};
