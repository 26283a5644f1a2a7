// The demo host app: a few screens a service centre's agent can watch and steer. By default it
// brings its own service (the local service, in-process) so that it runs on a machine without
// any setup; --server points it at another one.
#include "CardNumberEdit.h"
#include "LocalService.h"
#include "MainWindow.h"
#include "SessionPanel.h"
#include "SignInPage.h"
#include "SignalWatcher.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneCoBrowsing.h>
#include <Vistrel/OrvaneVistrel.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTimer>
#include <QUrl>

#include <csignal>
#include <cstdio>
#include <memory>

#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
void fail(const QString &message)
{
    std::fprintf(stderr, "vistrel-demo: %s\n", qPrintable(message));
}

bool hasDisplay()
{
    return qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY") ||
           qEnvironmentVariableIsSet("QT_QPA_PLATFORM");
}

// The embedded service's init reply, declaring the sign-in page's private fields: the password
// by its tag, the card number by its class. Another server decides this on its own.
QByteArray monitoringConfig()
{
    QJsonObject reply =
        QJsonDocument::fromJson(VistrelService::LocalService::defaultMonitoringConfig()).object();
    reply[u"ios"_s] = QJsonObject{
        {u"blacklist"_s, QJsonArray{QString::number(SignInPage::PasswordTag)}},
        {u"blacklistClasses"_s,
         QJsonArray{QString::fromLatin1(CardNumberEdit::staticMetaObject.className())}}};
    return QJsonDocument(reply).toJson(QJsonDocument::Compact);
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

int main(int argc, char *argv[])
{
    // Without a display the app still runs, unseen: the agent console is how one watches it.
    if (!hasDisplay())
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // The web chat runs Chromium, which refuses to start its sandbox as root (containers, CI).
    if (::geteuid() == 0 && !qEnvironmentVariableIsSet("QTWEBENGINE_DISABLE_SANDBOX"))
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    // Qt WebEngine needs this before the application exists.
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    // The kit keeps the device's identifier under these names.
    QApplication::setApplicationName(u"vistrel-demo"_s);
    QApplication::setOrganizationName(u"Vistrel"_s);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Vistrel demo host app. Starts the local service in-process on 127.0.0.1:8080 (or a free "
        "port) and prints the URL of its agent console, unless --server names another service."_s);
    parser.addHelpOption();
    const QCommandLineOption serverOption(
        u"server"_s, u"Use the service at <host:port> instead of the embedded one."_s,
        u"host:port"_s);
    const QCommandLineOption schemeOption(
        u"scheme"_s, u"URL scheme of --server: http or https (default http)."_s, u"scheme"_s,
        u"http"_s);
    const QCommandLineOption noAutostartOption(
        u"no-autostart"_s, u"Do not start the session; use the panel's buttons."_s);
    // The video call opens the embedded service's stand-in meeting over HTTPS, with the test
    // certificate from tests/tls/make-test-authority.sh; the call view trusts it only when HOME
    // holds that authority's NSS database (scripts/demo.sh sets both).
    const QCommandLineOption tlsDirOption(
        u"tls-dir"_s,
        u"Serve the stand-in meeting over HTTPS with <dir>/server.pem and server.key "
        "(default: $VISTREL_TEST_TLS_DIR)."_s,
        u"dir"_s, qEnvironmentVariable("VISTREL_TEST_TLS_DIR"));
    const QCommandLineOption webSocketOption(
        u"websocket"_s,
        u"Stream over a WebSocket: the agent's taps arrive at once (default: HTTP)."_s);
    parser.addOptions(
        {serverOption, schemeOption, noAutostartOption, tlsDirOption, webSocketOption});
    parser.process(app);

    QString server = parser.value(serverOption);
    const QString scheme = parser.value(schemeOption);
    if (scheme != u"http"_s && scheme != u"https"_s) {
        fail(u"--scheme must be http or https"_s);
        return 1;
    }
    if (parser.isSet(schemeOption) && server.isEmpty()) {
        fail(u"--scheme applies to --server only; the embedded service speaks http"_s);
        return 1;
    }

    std::unique_ptr<VistrelService::LocalService> service;
    if (server.isEmpty()) {
        service = std::make_unique<VistrelService::LocalService>();
        service->setMonitoringConfig(monitoringConfig());
        // The usual port first, so the console's address is the same from one run to the next.
        if (!service->start(QHostAddress::LocalHost, 8080) &&
            !service->start(QHostAddress::LocalHost, 0)) {
            fail(u"cannot start the local service"_s);
            return 1;
        }
        server = service->hostAndPort();
        const QString tlsDir = parser.value(tlsDirOption);
        if (tlsDir.isEmpty()) {
            std::printf("No --tls-dir: video calls cannot open (run scripts/demo.sh)\n");
        } else if (!service->startTlsFromDirectory(tlsDir)) {
            fail(u"cannot serve HTTPS with the certificate in "_s + tlsDir);
            return 1;
        } else {
            std::printf("Stand-in meeting: https://%s/\n", qPrintable(service->tlsHostAndPort()));
        }
    } else {
        const QUrl url(scheme + u"://"_s + server);
        if (!url.isValid() || url.host().isEmpty() || !url.path().isEmpty() || url.hasQuery()) {
            fail(u"--server takes host:port, not "_s + server);
            return 1;
        }
    }

    const QTemporaryDir configDir;
    const QString configPath = configDir.filePath(u"Config.json"_s);
    if (!configDir.isValid() || !writeKitConfig(configPath, server, scheme)) {
        fail(u"cannot write the kit's config file "_s + configPath);
        return 1;
    }
    Orvane::setConfigFile(configPath);
    if (!Orvane::initConfig(QString::fromLatin1(SessionPanel::TenantId), u"demo-token"_s)) {
        fail(u"the kit could not be configured"_s);
        return 1;
    }

    MainWindow window;
    window.show();

    // The browser test and Ctrl+C end the demo with a signal: leave through the event loop, so
    // that the session stops while its window still exists. (Should watching fail, the signals
    // keep their default action, which ends the demo too.)
    SignalWatcher signalWatcher;
    signalWatcher.watch(SIGINT);
    signalWatcher.watch(SIGTERM);
    QObject::connect(&signalWatcher, &SignalWatcher::received, &app, &QCoreApplication::quit);
    // Running is more than recording: a session the service told not to record still holds
    // its visit open, and only a stop ends it.
    bool running = false;
    QObject::connect(Orvane::vistrel(), &OrvaneVistrel::started, &app,
                     [&running] { running = true; });
    QObject::connect(Orvane::vistrel(), &OrvaneVistrel::stopped, &app,
                     [&running] { running = false; });
    QObject::connect(Orvane::vistrel(), &OrvaneVistrel::startFailed, &app,
                     [&running] { running = false; });
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &app, [&running] {
        // Stopping the session removes the co-browsing widget too.
        if (running || Orvane::coBrowsing()->isShown()) {
            Orvane::vistrel()->stop();
            // The visit's delete leaves from Qt's HTTP thread: give it a moment before the
            // process ends, or the service only learns of the end when the visit goes silent.
            QEventLoop wait;
            QTimer::singleShot(250, &wait, &QEventLoop::quit);
            wait.exec();
        }
    });

    if (parser.isSet(webSocketOption))
        Orvane::vistrel()->setTransport(OrvaneVistrel::Transport::WebSocket);
    // Streaming from the first moment, so the console shows the screen as soon as it opens.
    // Running from this call on: the visit may exist before started() arrives, and an exit in
    // between must end it too.
    if (!parser.isSet(noAutostartOption)) {
        running = true;
        Orvane::vistrel()->start();
    }

    std::printf("Agent console: %s://%s/\n", qPrintable(scheme), qPrintable(server));
    std::fflush(stdout);
    return app.exec();
}
