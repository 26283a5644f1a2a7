#include "WebChat/DocumentStore.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace VistrelKit {

DocumentStore::DocumentStore() = default;

QString DocumentStore::safeName(const QString &fileName)
{
    // Both separators count: a name written for another platform must not keep a directory.
    QString name = fileName.section(u'/', -1).section(u'\\', -1).trimmed();
    name.remove(QChar(0));
    if (name == u"."_s || name == u".."_s)
        return {};
    return name;
}

QString DocumentStore::directory() const
{
    return m_directory ? m_directory->path() : QString();
}

Result<QString> DocumentStore::write(const QString &fileName, const QByteArray &bytes)
{
    const QString name = safeName(fileName);
    if (name.isEmpty())
        return StringError(u"Refused document name \"%1\""_s.arg(fileName));
    if (bytes.size() > MaxDocumentBytes)
        return StringError(u"Document of %1 bytes is larger than %2 bytes"_s.arg(bytes.size())
                               .arg(MaxDocumentBytes));
    if (!m_directory) {
        // QTemporaryDir makes the directory owner-only (0700) and removes it with the process.
        const QString root = QStandardPaths::writableLocation(QStandardPaths::TempLocation);
        m_directory = std::make_unique<QTemporaryDir>(root + u"/vistrel-documents-XXXXXX"_s);
        if (!m_directory->isValid()) {
            const QString why = m_directory->errorString();
            m_directory.reset();
            return StringError(u"Cannot create the document directory: "_s + why);
        }
    }
    const QString path = QDir(m_directory->path()).filePath(name);
    // The name is a single component, so the file is a direct child of the directory.
    if (QFileInfo(path).absolutePath() != QFileInfo(m_directory->path()).absoluteFilePath())
        return StringError(u"Refused document name \"%1\""_s.arg(fileName));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
        return StringError(u"Cannot write document %1: %2"_s.arg(path, file.errorString()));
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    return path;
}

} // namespace VistrelKit
