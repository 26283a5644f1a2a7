#include "ServiceConfig.h"

#include "LocalService.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QStringList>

#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;

namespace VistrelService {

namespace {

/// How a key of "initReply" lands in the reply body.
enum class ReplyKind {
    Boolean,   // copied under its own name
    Text,      // copied under its own name
    TagList,   // integers, written as decimal text into "ios"
    ClassList, // strings, into "ios"
};

struct ReplyKey
{
    QLatin1StringView name;
    ReplyKind kind;
    /// The key of "ios" the list goes to.
    QLatin1StringView iosKey = {};
};

// In the order docs/service.md lists them.
const ReplyKey ReplyKeys[] = {
    {"privateTags"_L1, ReplyKind::TagList, "blacklist"_L1},
    {"privateClasses"_L1, ReplyKind::ClassList, "blacklistClasses"_L1},
    {"shouldStartMonitoring"_L1, ReplyKind::Boolean},
    {"startMonitoringType"_L1, ReplyKind::Text},
    {"storageType"_L1, ReplyKind::Text},
    {"chatActivated"_L1, ReplyKind::Boolean},
    {"disableWebSocket"_L1, ReplyKind::Boolean},
    {"ignoreIp"_L1, ReplyKind::Boolean},
};

QString typeName(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Null:
        return u"null"_s;
    case QJsonValue::Bool:
        return u"a boolean"_s;
    case QJsonValue::Double:
        return u"a number"_s;
    case QJsonValue::String:
        return u"a string"_s;
    case QJsonValue::Array:
        return u"an array"_s;
    case QJsonValue::Object:
        return u"an object"_s;
    case QJsonValue::Undefined:
        break;
    }
    return u"nothing"_s;
}

/// Checks the document while it reads it, and words the first fault with the file and the
/// key's path.
class Reader
{
public:
    Reader(const QString &fileName, QString *error)
        : m_fileName(fileName)
        , m_error(error)
    {}

    bool fail(const QString &key, const QString &problem)
    {
        if (m_error)
            *m_error = m_fileName + u": key \""_s + key + u"\": "_s + problem;
        return false;
    }

    bool expect(bool ok, const QString &key, const QString &what, const QJsonValue &value)
    {
        return ok || fail(key, u"expected "_s + what + u", got "_s + typeName(value));
    }

    bool onlyKnownKeys(const QJsonObject &object, const QString &path, const QStringList &known)
    {
        for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
            if (!known.contains(it.key()))
                return fail(join(path, it.key()),
                            u"unknown key; known here: "_s + known.join(u", "_s));
        }
        return true;
    }

    std::optional<qint64> integer(const QJsonValue &value, const QString &key, qint64 min,
                                  qint64 max)
    {
        const QString what = u"an integer from %1 to %2"_s.arg(min).arg(max);
        const double number = value.toDouble();
        if (!expect(value.isDouble(), key, what, value))
            return std::nullopt;
        if (number != std::trunc(number) || number < double(min) || number > double(max)) {
            fail(key, u"expected "_s + what + u", got "_s + QString::number(number));
            return std::nullopt;
        }
        return qint64(number);
    }

    /// Applies an "initReply" object on top of reply.
    bool readInitReply(const QJsonValue &value, const QString &path, QJsonObject &reply)
    {
        if (!expect(value.isObject(), path, u"an object"_s, value))
            return false;
        const QJsonObject object = value.toObject();
        QStringList known;
        for (const ReplyKey &key : ReplyKeys)
            known.append(key.name);
        if (!onlyKnownKeys(object, path, known))
            return false;
        for (const ReplyKey &key : ReplyKeys) {
            const auto found = object.constFind(key.name);
            if (found == object.constEnd())
                continue;
            const QString keyPath = join(path, key.name);
            switch (key.kind) {
            case ReplyKind::Boolean:
                if (!expect(found->isBool(), keyPath, u"a boolean"_s, *found))
                    return false;
                reply.insert(key.name, *found);
                break;
            case ReplyKind::Text:
                if (!expect(found->isString(), keyPath, u"a string"_s, *found))
                    return false;
                reply.insert(key.name, *found);
                break;
            case ReplyKind::TagList:
            case ReplyKind::ClassList: {
                std::optional<QJsonArray> list = readList(*found, keyPath, key.kind);
                if (!list)
                    return false;
                QJsonObject ios = reply.value("ios"_L1).toObject();
                ios.insert(key.iosKey, *list);
                reply.insert("ios"_L1, ios);
                break;
            }
            }
        }
        return true;
    }

    bool readTenants(const QJsonValue &value, const QJsonObject &defaultReply,
                     QMap<QString, QJsonObject> &replies)
    {
        const QString path = u"tenants"_s;
        if (!expect(value.isObject(), path, u"an object of tenant ids"_s, value))
            return false;
        const QJsonObject tenants = value.toObject();
        for (auto it = tenants.constBegin(); it != tenants.constEnd(); ++it) {
            const QString tenantPath = join(path, it.key());
            if (!expect(it->isObject(), tenantPath, u"an object"_s, *it))
                return false;
            const QJsonObject tenant = it->toObject();
            if (!onlyKnownKeys(tenant, tenantPath, {u"initReply"_s}))
                return false;
            // A tenant states only how it differs from the file's own reply.
            QJsonObject reply = defaultReply;
            if (tenant.contains("initReply"_L1) &&
                !readInitReply(tenant.value("initReply"_L1), join(tenantPath, u"initReply"_s),
                               reply))
                return false;
            replies.insert(it.key(), reply);
        }
        return true;
    }

private:
    static QString join(const QString &path, const QString &key)
    {
        return path.isEmpty() ? key : path + u'.' + key;
    }

    std::optional<QJsonArray> readList(const QJsonValue &value, const QString &path, ReplyKind kind)
    {
        const bool tags = kind == ReplyKind::TagList;
        if (!expect(value.isArray(), path,
                    tags ? u"an array of integers"_s : u"an array of strings"_s, value))
            return std::nullopt;
        QJsonArray list;
        const QJsonArray entries = value.toArray();
        for (qsizetype i = 0; i < entries.size(); ++i) {
            const QJsonValue entry = entries.at(i);
            const QString entryPath = path + u'[' + QString::number(i) + u']';
            if (tags) {
                // Devices read a tag as an int; a wider one could never match a view.
                const std::optional<qint64> tag =
                    integer(entry, entryPath, std::numeric_limits<int>::min(),
                            std::numeric_limits<int>::max());
                if (!tag)
                    return std::nullopt;
                list.append(QString::number(*tag));
            } else {
                if (!expect(entry.isString(), entryPath, u"a string"_s, entry))
                    return std::nullopt;
                list.append(entry);
            }
        }
        return list;
    }

    QString m_fileName;
    QString *m_error;
};

} // namespace

std::optional<ServiceConfig> ServiceConfig::load(const QString &fileName, QString *error)
{
    const QString absolute = QFileInfo(fileName).absoluteFilePath();
    QFile file(absolute);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = absolute + u": cannot read: "_s + file.errorString();
        return std::nullopt;
    }
    return fromJson(file.readAll(), absolute, error);
}

std::optional<ServiceConfig> ServiceConfig::fromJson(const QByteArray &json,
                                                     const QString &fileName, QString *error)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        if (error)
            *error = fileName + u": not JSON: "_s + parseError.errorString() + u" at offset "_s +
                     QString::number(parseError.offset);
        return std::nullopt;
    }
    if (!document.isObject()) {
        if (error)
            *error = fileName + u": expected a JSON object at the top level"_s;
        return std::nullopt;
    }
    const QJsonObject object = document.object();
    Reader reader(fileName, error);
    if (!reader.onlyKnownKeys(object, {},
                              {u"address"_s, u"port"_s, u"tlsDir"_s, u"initReply"_s, u"tenants"_s}))
        return std::nullopt;

    ServiceConfig config;
    config.fileName = fileName;
    if (const QJsonValue value = object.value("address"_L1); !value.isUndefined()) {
        if (!reader.expect(value.isString(), u"address"_s, u"a string"_s, value))
            return std::nullopt;
        if (QHostAddress(value.toString()).isNull()) {
            reader.fail(u"address"_s, u"\""_s + value.toString() + u"\" is not an IP address"_s);
            return std::nullopt;
        }
        config.address = value.toString();
    }
    if (const QJsonValue value = object.value("port"_L1); !value.isUndefined()) {
        const std::optional<qint64> port = reader.integer(value, u"port"_s, 0, 65535);
        if (!port)
            return std::nullopt;
        config.port = quint16(*port);
    }
    if (const QJsonValue value = object.value("tlsDir"_L1); !value.isUndefined()) {
        if (!reader.expect(value.isString(), u"tlsDir"_s, u"a string"_s, value))
            return std::nullopt;
        // Relative to the file, so a config and its certificate can move together.
        if (!value.toString().isEmpty())
            config.tlsDir = QFileInfo(fileName).dir().absoluteFilePath(value.toString());
    }
    // The file's own reply first: the tenants build on it.
    if (const QJsonValue value = object.value("initReply"_L1); !value.isUndefined()) {
        if (!reader.readInitReply(value, u"initReply"_s, config.initReply))
            return std::nullopt;
    }
    if (const QJsonValue value = object.value("tenants"_L1); !value.isUndefined()) {
        if (!reader.readTenants(value, config.initReply, config.tenantInitReplies))
            return std::nullopt;
    }
    return config;
}

QJsonObject ServiceConfig::defaultInitReply()
{
    return QJsonDocument::fromJson(LocalService::defaultMonitoringConfig()).object();
}

void ServiceConfig::applyTo(LocalService &service) const
{
    service.setMonitoringConfig(QJsonDocument(initReply).toJson(QJsonDocument::Compact));
    for (auto it = tenantInitReplies.constBegin(); it != tenantInitReplies.constEnd(); ++it)
        service.setMonitoringConfig(it.key(), QJsonDocument(*it).toJson(QJsonDocument::Compact));
}

} // namespace VistrelService
