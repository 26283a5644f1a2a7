#pragma once

#include "Core/Result.h"

#include <Vistrel/vistrel_export.h>

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <memory>

namespace VistrelKit {

/// Where documents from the chat are written: a directory of this process alone (owner-only,
/// removed when the process ends), never the shared temporary root. The file name comes from
/// the network, so only its last component is kept and names that could leave the directory
/// are refused.
class VISTREL_AUTOTEST_EXPORT DocumentStore
{
public:
    /// Larger documents are refused: a document is held in memory whole, twice while decoded.
    static constexpr qsizetype MaxDocumentBytes = 32 * 1024 * 1024;

    DocumentStore();

    /// Writes bytes under the base name of fileName, replacing an older file of that name.
    /// Returns the file's path, or why it was refused.
    Result<QString> write(const QString &fileName, const QByteArray &bytes);
    /// The last path component of a name from the network; empty when nothing usable is left.
    static QString safeName(const QString &fileName);
    /// The directory (created on first write).
    QString directory() const;

private:
    std::unique_ptr<QTemporaryDir> m_directory;
};

} // namespace VistrelKit
