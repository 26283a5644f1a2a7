#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QPair>
#include <QString>
#include <QUrlQuery>

namespace VistrelService {

/// One request exactly as it reached the service.
struct RecordedRequest
{
    QString method;
    /// The URL path, e.g. "/api/in/im/c".
    QString path;
    QUrlQuery query;
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;
    QDateTime time;
    /// Status code the service answered with.
    int status = 0;
    /// It came over TLS, to the port of LocalService::startTls().
    bool secure = false;

    bool hasHeader(const QByteArray &name) const
    {
        for (const auto &header : headers) {
            if (header.first.compare(name, Qt::CaseInsensitive) == 0)
                return true;
        }
        return false;
    }

    QByteArray header(const QByteArray &name) const
    {
        for (const auto &[key, value] : headers) {
            if (key.compare(name, Qt::CaseInsensitive) == 0)
                return value;
        }
        return {};
    }

    QString queryValue(const QString &key) const
    {
        return query.queryItemValue(key, QUrl::FullyDecoded);
    }
};

} // namespace VistrelService
