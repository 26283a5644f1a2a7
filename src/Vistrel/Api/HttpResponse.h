#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>

namespace VistrelKit {

/// The status line and headers of an HTTP reply.
struct HttpResponse
{
    int statusCode = 0;
    QList<QPair<QByteArray, QByteArray>> headers;

    QByteArray header(const QByteArray &name) const
    {
        for (const auto &[key, value] : headers) {
            if (key.compare(name, Qt::CaseInsensitive) == 0)
                return value;
        }
        return {};
    }
};

} // namespace VistrelKit
