#pragma once

#include <Vistrel/vistrel_export.h>

#include <QNetworkReply>
#include <QString>

namespace VistrelKit {

/// A transport failure as Qt Network reports it (no HTTP response was received).
class VISTREL_PRIVATE_EXPORT NetworkError
{
public:
    NetworkError(QNetworkReply::NetworkError code, QString text)
        : m_code(code)
        , m_text(std::move(text))
    {}

    QNetworkReply::NetworkError code() const { return m_code; }
    /// Qt's own text for the error, as QNetworkReply::errorString() gives it.
    QString description() const { return m_text; }

    bool operator==(const NetworkError &other) const = default;

private:
    QNetworkReply::NetworkError m_code;
    QString m_text;
};

} // namespace VistrelKit
