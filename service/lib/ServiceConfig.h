#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QString>

#include <optional>

namespace VistrelService {

class LocalService;

/// What vistrel-service runs with: where it listens and what its init reply tells devices.
/// Read from a JSON file (docs/service.md); whatever the file leaves out keeps the built-in
/// default, and a key it does not know is refused, so a misspelt one cannot go unnoticed.
struct ServiceConfig
{
    static constexpr quint16 DefaultPort = 8080;

    /// The file read, absolute; empty for the built-in defaults.
    QString fileName;
    QString address = QStringLiteral("127.0.0.1");
    quint16 port = DefaultPort;
    /// Absolute, or empty when the file names none.
    QString tlsDir;
    /// The whole body of the init reply (POST api/in/im/c).
    QJsonObject initReply = defaultInitReply();
    /// Whole init replies by tenant id, for the init requests naming that tenant.
    QMap<QString, QJsonObject> tenantInitReplies;

    /// Reads and checks the file. On failure returns nothing and sets *error to one line naming
    /// the file and, when a key is at fault, the key ("initReply.privateTags[1]").
    static std::optional<ServiceConfig> load(const QString &fileName, QString *error);
    /// load() for text already read: fileName names it in errors and anchors a relative tlsDir.
    static std::optional<ServiceConfig> fromJson(const QByteArray &json, const QString &fileName,
                                                 QString *error);
    /// The service's own init reply.
    static QJsonObject defaultInitReply();

    /// Makes the service answer init requests with these replies.
    void applyTo(LocalService &service) const;
};

} // namespace VistrelService
