// The demo host app: starts the local service in-process (or uses --server), binds the kit to a
// tenant and runs the init handshake, printing what happened.
#include "Config/ApplicationConfigWrapper.h"
#include "Core/Injection.h"
#include "Init/InitSender.h"
#include "LocalService.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneConfiguration.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <memory>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
void say(const QString &text)
{
    std::printf("%s\n", qPrintable(text));
    std::fflush(stdout);
}

bool hasDisplay()
{
    return qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY") ||
           qEnvironmentVariableIsSet("QT_QPA_PLATFORM");
}
} // namespace

int main(int argc, char *argv[])
{
    if (!hasDisplay())
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QApplication::setApplicationName(u"vistrel-demo"_s);
    QApplication::setOrganizationName(u"Vistrel"_s);

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Vistrel demo host app"_s);
    parser.addHelpOption();
    const QCommandLineOption serverOption(
        u"server"_s, u"Use the service at HOST:PORT instead of the embedded one."_s,
        u"host:port"_s);
    const QCommandLineOption schemeOption(u"scheme"_s, u"URL scheme of --server (http or https)."_s,
                                          u"scheme"_s, u"http"_s);
    parser.addOption(serverOption);
    parser.addOption(schemeOption);
    parser.process(app);

    std::unique_ptr<VistrelService::LocalService> service;
    QString server = parser.value(serverOption);
    QString scheme = parser.value(schemeOption);
    if (server.isEmpty()) {
        service = std::make_unique<VistrelService::LocalService>();
        if (!service->start(QHostAddress::LocalHost, 8080) &&
            !service->start(QHostAddress::LocalHost, 0)) {
            say(u"Cannot start the local service"_s);
            return 1;
        }
        server = service->hostAndPort();
        scheme = u"http"_s;
        say(u"Local service listening on http://"_s + server);
    }

    // Point the kit at the service through its config file, as a host app would.
    QTemporaryDir configDir;
    const QString configPath = configDir.filePath(u"Config.json"_s);
    QFile configFile(configPath);
    if (!configFile.open(QIODevice::WriteOnly)) {
        say(u"Cannot write "_s + configPath);
        return 1;
    }
    const bool secure = scheme == u"https"_s;
    configFile.write(
        QJsonDocument(QJsonObject{{u"Hostname"_s, server},
                                  {u"CdnHostname"_s, server},
                                  {u"HttpProtocol"_s, scheme},
                                  {u"WebSocketProtocol"_s, secure ? u"wss"_s : u"ws"_s}})
            .toJson());
    configFile.close();
    Orvane::setConfigFile(configPath);

    if (!Orvane::initConfig(u"demo-tenant"_s, u"demo-token"_s)) {
        say(u"The kit could not be configured"_s);
        return 1;
    }
    say(u"Kit bound to tenant demo-tenant, service "_s + Orvane::configuration()->server());

    auto *initSender = Injection::getContainer().resolveOrLog<InitSender>();
    auto *config = Injection::getContainer().resolveOrLog<ApplicationConfigWrapper>();
    if (!initSender || !config)
        return 1;
    config->config().vistrelConfig.newShareIdAndStartTime();

    int exitCode = 1;
    bool done = false;
    initSender->send(u"DemoWindow"_s, true, [&](const Result<MonitoringConfigDTO> &result) {
        if (done)
            return; // a transport error is followed by a second completion
        done = true;
        if (result.isOk()) {
            const MonitoringConfigDTO &reply = result.value();
            say(u"Init handshake succeeded: shouldStartMonitoring=%1 storageType=%2 chatActivated=%3 ip=%4"_s
                    .arg(reply.shouldStartMonitoring ? u"true"_s : u"false"_s,
                         reply.storageType.value_or(u"(none)"_s),
                         reply.chatActivated ? (*reply.chatActivated ? u"true"_s : u"false"_s)
                                             : u"(none)"_s,
                         reply.ip));
            say(u"Visit %1, session %2, share id %3"_s.arg(
                *config->config().visitConfig.visitId, *config->config().visitConfig.sessionId,
                *config->config().vistrelConfig.shareId));
            exitCode = 0;
        } else {
            say(u"Init handshake failed: "_s + result.error().description());
        }
        if (service) {
            for (const auto &request : service->requests())
                say(u"Service received %1 %2 (%3 bytes) -> %4"_s.arg(
                    request.method, request.path, QString::number(request.body.size()),
                    QString::number(request.status)));
        }
        QTimer::singleShot(0, &app, [&] { app.exit(exitCode); });
    });
    return app.exec();
}
