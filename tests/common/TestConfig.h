#pragma once

#include <QString>
#include <QTemporaryDir>

#include <optional>

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

private:
    static QTemporaryDir &directory();
};
