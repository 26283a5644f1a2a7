#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>

namespace VistrelService {

/// What an endpoint answers; written by LocalService.
struct HttpReply
{
    int status = 200;
    QByteArray body;
    QByteArray contentType = QByteArrayLiteral("application/json");
    /// Sent after Content-Type and Content-Length (e.g. Content-Disposition).
    QList<QPair<QByteArray, QByteArray>> headers = {};

    static HttpReply error(int status, const char *message)
    {
        QByteArray body = R"({"error":")";
        body += message;
        body += R"("})";
        return HttpReply{status, body};
    }
};

} // namespace VistrelService
