#pragma once

#include <QByteArray>

namespace VistrelService {

/// What an endpoint answers; written by LocalService.
struct HttpReply
{
    int status = 200;
    QByteArray body;
    QByteArray contentType = QByteArrayLiteral("application/json");

    static HttpReply error(int status, const char *message)
    {
        QByteArray body = R"({"error":")";
        body += message;
        body += R"("})";
        return HttpReply{status, body};
    }
};

} // namespace VistrelService
