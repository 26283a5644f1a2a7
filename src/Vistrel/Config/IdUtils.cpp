#include "Config/IdUtils.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace VistrelKit {

QString IdUtils::newUuid()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

QString IdUtils::vendorIdFile()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) +
           u"/vistrel/installation-id"_s;
}

QString IdUtils::vendorId()
{
    static QString cached;
    if (!cached.isEmpty())
        return cached;

    const QString path = vendorIdFile();
    // The identifier follows the user across visits: no other local user may read it. A file
    // an earlier version left readable is closed up too.
    const QString folder = QFileInfo(path).absolutePath();
    const auto ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
    QFile file(path);
    if (file.open(QIODevice::ReadOnly)) {
        const QUuid stored = QUuid::fromString(QString::fromLatin1(file.readAll().trimmed()));
        if (!stored.isNull()) {
            QFile::setPermissions(folder, ownerOnly | QFileDevice::ExeOwner);
            QFile::setPermissions(path, ownerOnly);
            cached = stored.toString(QUuid::WithoutBraces).toUpper();
            return cached;
        }
    }

    const QString fresh = newUuid();
    QSaveFile out(path);
    if (!QDir().mkpath(folder) ||
        !QFile::setPermissions(folder, ownerOnly | QFileDevice::ExeOwner) ||
        !out.open(QIODevice::WriteOnly) || !out.setPermissions(ownerOnly) ||
        out.write(fresh.toLatin1()) < 0 || !out.commit()) {
        qFatal("Cannot store the device identifier in %s", qPrintable(path));
    }
    cached = fresh;
    return cached;
}

} // namespace VistrelKit
