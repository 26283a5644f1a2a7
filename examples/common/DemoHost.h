#pragma once

#include "SignalWatcher.h"

#include <QByteArray>
#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QObject>
#include <QString>
#include <QTemporaryDir>

#include <memory>

namespace VistrelService {
class LocalService;
}

/// What the demo apps share besides their UI: the command line, the embedded local service, the
/// kit's config file, and the session's start and stop around the event loop. By default a demo
/// brings its own service (the local service, in-process) so that it runs on a machine without
/// any setup; --server points it at another one.
///
/// \code
/// DemoHost::prepareEnvironment();
/// QGuiApplication app(argc, argv);
/// DemoHost host;
/// if (!host.setUp(u"..."_s, tenantId, DemoHost::monitoringConfig(tag, className)))
///     return 1;
/// // ... show the UI ...
/// host.start();
/// return app.exec();
/// \endcode
class DemoHost : public QObject
{
    Q_OBJECT
public:
    /// Before the application object exists: the offscreen platform when there is no display,
    /// no Chromium sandbox as root, and the OpenGL context sharing Qt WebEngine needs.
    static void prepareEnvironment();

    /// The embedded service's init reply, declaring the sign-in page's private fields: the
    /// password by its tag, the card number by its class. Another server decides this on its own.
    static QByteArray monitoringConfig(int privateTag, const QString &privateClassName);

    explicit DemoHost(QObject *parent = nullptr);
    ~DemoHost() override;

    /// Reads the command line (about is the help text's first sentence), starts the embedded
    /// service unless --server names another one, points the kit at the service and binds it to
    /// tenantId. Returns false, after printing why, when the app cannot run.
    bool setUp(const QString &about, const QString &tenantId, const QByteArray &monitoringConfig);

    /// Once the UI is shown: ends the app through the event loop on SIGINT and SIGTERM, stops a
    /// running session on the way out, starts the session unless --no-autostart, and prints the
    /// agent console's URL.
    void start();

private:
    QCommandLineParser m_parser;
    const QCommandLineOption m_serverOption;
    const QCommandLineOption m_schemeOption;
    const QCommandLineOption m_noAutostartOption;
    const QCommandLineOption m_tlsDirOption;
    const QCommandLineOption m_webSocketOption;
    std::unique_ptr<VistrelService::LocalService> m_service;
    QTemporaryDir m_configDir;
    QString m_server;
    QString m_scheme;
    SignalWatcher m_signalWatcher;
    /// Running is more than recording: a session the service told not to record still holds
    /// its visit open, and only a stop ends it.
    bool m_running = false;
};
