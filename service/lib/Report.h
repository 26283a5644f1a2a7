#pragma once

#include "Transport.h"

#include "Network/Message/ProtoMessages.h"

#include <QDateTime>
#include <QString>
#include <QUrlQuery>

namespace VistrelService {

/// One decoded ProtoMessage with the identifiers of the request or connection that carried it.
struct Report
{
    VistrelKit::ProtoMessage message;
    QDateTime receivedAt;
    Transport transport = Transport::Xhr;
    QString visitId;
    QString sessionId;
    QString tenantId;
    QString visitorId;
    /// The screen name the device put in the URL ("url").
    QString url;
    QString storageType;

    /// A report without its message, stamped with what the carrying request's query names.
    static Report stamp(const QString &visitId, Transport transport, const QUrlQuery &query,
                        const QDateTime &receivedAt)
    {
        const auto value = [&query](const char16_t *key) {
            return query.queryItemValue(QString::fromUtf16(key), QUrl::FullyDecoded);
        };
        Report report;
        report.receivedAt = receivedAt;
        report.transport = transport;
        report.visitId = visitId;
        report.sessionId = value(u"sId");
        report.tenantId = value(u"tId");
        report.visitorId = value(u"vId");
        report.url = value(u"url");
        report.storageType = value(u"fsTy");
        return report;
    }
};

} // namespace VistrelService
