#pragma once

#include <QByteArray>
#include <QString>

namespace VistrelService {

/// A document an agent sends into a web chat, made on the spot: a two-page PDF statement or a
/// PNG chart. Drawing text needs fonts, so both need a QGuiApplication.
struct AgentDocument
{
    enum class Kind { Pdf, Png };

    QString fileName;
    QByteArray contentType;
    QByteArray bytes;

    static QString defaultFileName(Kind kind);
    /// Empty bytes when no QGuiApplication exists.
    static AgentDocument make(Kind kind, const QString &fileName);
};

} // namespace VistrelService
