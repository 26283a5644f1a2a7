#pragma once

#include "Config/ConstantUtils.h"
#include "Config/ServiceHost.h"
#include "Core/Log.h"
#include "LocalService.h"

#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <cstdio>
#include <optional>

/// The local service on loopback and the kit pointed at it, as a host app would do it: a config
/// file with the server and CDN on the service, plain HTTP, and the service host set.
struct BenchService
{
    VistrelService::LocalService service;
    QTemporaryDir dir;
    VistrelKit::ServiceHost host;

    /// The kit's debug lines would run through a bench's tables; the rest go to stderr.
    static void quietLog()
    {
        VistrelKit::Log::setHandler(
            [](const QString &level, const QString &source, const QString &message) {
                if (level != QStringLiteral("DEBUG"))
                    std::fprintf(stderr, "%s %s: %s\n", qPrintable(level), qPrintable(source),
                                 qPrintable(message));
            });
    }

    /// Starts the service (with TLS from tlsDirectory when given) and writes the config file.
    /// False, with a line on stderr, when either fails.
    bool start(const std::optional<QString> &tlsDirectory = std::nullopt)
    {
        if (!service.start() || (tlsDirectory && !service.startTlsFromDirectory(*tlsDirectory))) {
            std::fprintf(stderr, "cannot start the local service%s\n",
                         tlsDirectory ? " with TLS (VISTREL_TEST_TLS_DIR?)" : "");
            return false;
        }
        QFile config(dir.filePath(QStringLiteral("Config.json")));
        if (!config.open(QIODevice::WriteOnly)) {
            std::fprintf(stderr, "cannot write the kit's config file\n");
            return false;
        }
        config.write(
            QStringLiteral("{\"Hostname\":\"%1\",\"CdnHostname\":\"%1\",\"HttpProtocol\":\"http\","
                           "\"WebSocketProtocol\":\"ws\"}")
                .arg(service.hostAndPort())
                .toUtf8());
        config.close();
        VistrelKit::ConstantUtils::setConfigFile(config.fileName());
        host.setServer(service.hostAndPort());
        return true;
    }
};
