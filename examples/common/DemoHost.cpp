#include "DemoHost.h"

#include "LocalService.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneCoBrowsing.h>
#include <Vistrel/OrvaneVistrel.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>
#include <QUrl>

#include <csignal>
#include <cstdio>

#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
void fail(const QString &message)
{
    std::fprintf(stderr, "%s: %s\n", qPrintable(QCoreApplication::applicationName()),
                 qPrintable(message));
}

bool hasDisplay()
{
    return qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY") ||
           qEnvironmentVariableIsSet("QT_QPA_PLATFORM");
}

// Points the kit at the service through its config file, as a host app would. The chat page
// comes from the CDN host, which for the demo is the service too ("cdn/chat/chat.html").
bool writeKitConfig(const QString &path, const QString &server, const QString &scheme)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    const QJsonObject config{{u"Hostname"_s, server},
                             {u"CdnHostname"_s, server},
                             {u"HttpProtocol"_s, scheme},
                             {u"WebSocketProtocol"_s, scheme == u"https"_s ? u"wss"_s : u"ws"_s}};
    return file.write(QJsonDocument(config).toJson()) > 0;
}
} // namespace

void DemoHost::prepareEnvironment()
{
    // Without a display the app still runs, unseen: the agent console is how one watches it.
    if (!hasDisplay())
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // The web chat runs Chromium, which refuses to start its sandbox as root (containers, CI).
    if (::geteuid() == 0 && !qEnvironmentVariableIsSet("QTWEBENGINE_DISABLE_SANDBOX"))
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    // Qt WebEngine needs this before the application exists.
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
}

QByteArray DemoHost::monitoringConfig(int privateTag, const QString &privateClassName)
{
    QJsonObject reply =
        QJsonDocument::fromJson(VistrelService::LocalService::defaultMonitoringConfig()).object();
    reply[u"ios"_s] = QJsonObject{{u"blacklist"_s, QJsonArray{QString::number(privateTag)}},
                                  {u"blacklistClasses"_s, QJsonArray{privateClassName}}};
    return QJsonDocument(reply).toJson(QJsonDocument::Compact);
}

DemoHost::DemoHost(QObject *parent)
    : QObject(parent)
    , m_serverOption(u"server"_s, u"Use the service at <host:port> instead of the embedded one."_s,
                     u"host:port"_s)
    , m_schemeOption(u"scheme"_s, u"URL scheme of --server: http or https (default http)."_s,
                     u"scheme"_s, u"http"_s)
    , m_noAutostartOption(u"no-autostart"_s,
                          u"Do not start the session; use the panel's buttons."_s)
    // The video call opens the embedded service's stand-in meeting over HTTPS, with the test
    // certificate from tests/tls/make-test-authority.sh; the call view trusts it only when HOME
    // holds that authority's NSS database (scripts/demo.sh sets both).
    , m_tlsDirOption(u"tls-dir"_s,
                     u"Serve the stand-in meeting over HTTPS with <dir>/server.pem and server.key "
                     "(default: $VISTREL_TEST_TLS_DIR)."_s,
                     u"dir"_s, qEnvironmentVariable("VISTREL_TEST_TLS_DIR"))
    , m_webSocketOption(
          u"websocket"_s,
          u"Stream over a WebSocket: the agent's taps arrive at once (default: HTTP)."_s)
{}

DemoHost::~DemoHost() = default;

bool DemoHost::setUp(const QString &about, const QString &tenantId,
                     const QByteArray &monitoringConfig)
{
    m_parser.setApplicationDescription(
        about + u" Starts the local service in-process on 127.0.0.1:8080 (or a free port) and "
                "prints the URL of its agent console, unless --server names another service."_s);
    m_parser.addHelpOption();
    m_parser.addOptions(
        {m_serverOption, m_schemeOption, m_noAutostartOption, m_tlsDirOption, m_webSocketOption});
    m_parser.process(*QCoreApplication::instance());

    m_server = m_parser.value(m_serverOption);
    m_scheme = m_parser.value(m_schemeOption);
    if (m_scheme != u"http"_s && m_scheme != u"https"_s) {
        fail(u"--scheme must be http or https"_s);
        return false;
    }
    if (m_parser.isSet(m_schemeOption) && m_server.isEmpty()) {
        fail(u"--scheme applies to --server only; the embedded service speaks http"_s);
        return false;
    }

    if (m_server.isEmpty()) {
        m_service = std::make_unique<VistrelService::LocalService>();
        m_service->setMonitoringConfig(monitoringConfig);
        // The usual port first, so the console's address is the same from one run to the next.
        if (!m_service->start(QHostAddress::LocalHost, 8080) &&
            !m_service->start(QHostAddress::LocalHost, 0)) {
            fail(u"cannot start the local service"_s);
            return false;
        }
        m_server = m_service->hostAndPort();
        const QString tlsDir = m_parser.value(m_tlsDirOption);
        if (tlsDir.isEmpty()) {
            std::printf("No --tls-dir: video calls cannot open (run scripts/demo.sh)\n");
        } else if (!m_service->startTlsFromDirectory(tlsDir)) {
            fail(u"cannot serve HTTPS with the certificate in "_s + tlsDir);
            return false;
        } else {
            std::printf("Stand-in meeting: https://%s/\n", qPrintable(m_service->tlsHostAndPort()));
        }
    } else {
        const QUrl url(m_scheme + u"://"_s + m_server);
        if (!url.isValid() || url.host().isEmpty() || !url.path().isEmpty() || url.hasQuery()) {
            fail(u"--server takes host:port, not "_s + m_server);
            return false;
        }
    }

    const QString configPath = m_configDir.filePath(u"Config.json"_s);
    if (!m_configDir.isValid() || !writeKitConfig(configPath, m_server, m_scheme)) {
        fail(u"cannot write the kit's config file "_s + configPath);
        return false;
    }
    Orvane::setConfigFile(configPath);
    if (!Orvane::initConfig(tenantId, u"demo-token"_s)) {
        fail(u"the kit could not be configured"_s);
        return false;
    }
    return true;
}

void DemoHost::start()
{
    QCoreApplication *app = QCoreApplication::instance();
    // The browser test and Ctrl+C end the demo with a signal: leave through the event loop, so
    // that the session stops while its window still exists. (Should watching fail, the signals
    // keep their default action, which ends the demo too.)
    m_signalWatcher.watch(SIGINT);
    m_signalWatcher.watch(SIGTERM);
    connect(&m_signalWatcher, &SignalWatcher::received, app, &QCoreApplication::quit);
    connect(Orvane::vistrel(), &OrvaneVistrel::started, this, [this] { m_running = true; });
    connect(Orvane::vistrel(), &OrvaneVistrel::stopped, this, [this] { m_running = false; });
    connect(Orvane::vistrel(), &OrvaneVistrel::startFailed, this, [this] { m_running = false; });
    connect(app, &QCoreApplication::aboutToQuit, this, [this] {
        // Stopping the session removes the co-browsing widget too.
        if (m_running || Orvane::coBrowsing()->isShown()) {
            Orvane::vistrel()->stop();
            // The visit's delete leaves from Qt's HTTP thread: give it a moment before the
            // process ends, or the service only learns of the end when the visit goes silent.
            QEventLoop wait;
            QTimer::singleShot(250, &wait, &QEventLoop::quit);
            wait.exec();
        }
    });

    if (m_parser.isSet(m_webSocketOption))
        Orvane::vistrel()->setTransport(OrvaneVistrel::Transport::WebSocket);
    // Streaming from the first moment, so the console shows the screen as soon as it opens.
    // Running from this call on: the visit may exist before started() arrives, and an exit in
    // between must end it too.
    if (!m_parser.isSet(m_noAutostartOption)) {
        m_running = true;
        Orvane::vistrel()->start();
    }

    std::printf("Agent console: %s://%s/\n", qPrintable(m_scheme), qPrintable(m_server));
    std::fflush(stdout);
}
