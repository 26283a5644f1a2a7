#pragma once

#include "Config/ConstantUtils.h"

#include <QFile>
#include <QString>
#include <QTemporaryDir>

/// Points the kit at a local service through its config file, as a host app would: server and
/// CDN on hostAndPort, plain HTTP. The file lives in dir. False when it cannot be written.
inline bool useKitConfigFile(const QTemporaryDir &dir, const QString &hostAndPort)
{
    QFile config(dir.filePath(QStringLiteral("Config.json")));
    if (!config.open(QIODevice::WriteOnly))
        return false;
    config.write(
        QStringLiteral("{\"Hostname\":\"%1\",\"CdnHostname\":\"%1\",\"HttpProtocol\":\"http\"}")
            .arg(hostAndPort)
            .toUtf8());
    config.close();
    VistrelKit::ConstantUtils::setConfigFile(config.fileName());
    return true;
}
