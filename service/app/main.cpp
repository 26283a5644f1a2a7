#include "LocalService.h"
#include "ServiceConfig.h"

#include <QCommandLineParser>
#include <QGuiApplication>

#include <cstdio>

using namespace Qt::StringLiterals;
using VistrelService::ServiceConfig;

namespace {

// A wrong setting is a usage error: 2, as for an unknown option, apart from 1 for a port that
// is taken or a certificate that does not load.
constexpr int SettingsError = 2;

/// The host part of a URL: IPv6 addresses go in brackets.
QString urlHost(const QString &address)
{
    return address.contains(u':') ? u'[' + address + u']' : address;
}

int settingsError(const QString &message)
{
    std::fprintf(stderr, "%s\n", qPrintable(message));
    return SettingsError;
}

} // namespace

int main(int argc, char *argv[])
{
    // A GUI application for the fonts of the documents agents send into chats; it shows no
    // window, so it needs no display.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"vistrel-service"_s);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Vistrel local service: the service side of the kit's endpoints on loopback. "
        "Settings come from the config file (docs/service.md); the options below override it."_s);
    parser.addHelpOption();
    QCommandLineOption configOption(
        u"config"_s,
        u"Read the settings from <file> (default: $VISTREL_SERVICE_CONFIG; without either, "
        "the built-in defaults)."_s,
        u"file"_s);
    QCommandLineOption portOption(
        u"port"_s, u"Port to listen on, 0 picks a free one (default: the file's, else 8080)."_s,
        u"port"_s);
    QCommandLineOption addressOption(
        u"address"_s, u"Address to listen on (default: the file's, else 127.0.0.1)."_s,
        u"address"_s);
    // The stand-in meeting of video calls needs HTTPS; the certificate and key come from
    // tests/tls/make-test-authority.sh.
    QCommandLineOption tlsDirOption(
        u"tls-dir"_s,
        u"Also serve HTTPS on a free loopback port with <dir>/server.pem and server.key "
        "(default: the file's tlsDir, else $VISTREL_TEST_TLS_DIR)."_s,
        u"dir"_s);
    // For a file edited by hand, and for an installed package's smoke test: no port is taken.
    QCommandLineOption checkOption(
        u"check"_s, u"Only read and check the settings, print the file read and exit."_s);
    parser.addOption(configOption);
    parser.addOption(portOption);
    parser.addOption(addressOption);
    parser.addOption(tlsDirOption);
    parser.addOption(checkOption);
    parser.process(app);

    const QString configFile = parser.isSet(configOption)
                                   ? parser.value(configOption)
                                   : qEnvironmentVariable("VISTREL_SERVICE_CONFIG");
    ServiceConfig config;
    if (!configFile.isEmpty()) {
        QString error;
        std::optional<ServiceConfig> loaded = ServiceConfig::load(configFile, &error);
        if (!loaded)
            return settingsError(error);
        config = std::move(*loaded);
    }
    if (parser.isSet(portOption)) {
        bool ok = false;
        const uint port = parser.value(portOption).toUInt(&ok);
        if (!ok || port > 65535)
            return settingsError(u"--port: \""_s + parser.value(portOption) +
                                 u"\" is not a port number (0 to 65535)"_s);
        config.port = quint16(port);
    }
    if (parser.isSet(addressOption)) {
        config.address = parser.value(addressOption);
        if (QHostAddress(config.address).isNull())
            return settingsError(u"--address: \""_s + config.address +
                                 u"\" is not an IP address"_s);
    }
    if (parser.isSet(tlsDirOption))
        config.tlsDir = parser.value(tlsDirOption);
    else if (config.tlsDir.isEmpty())
        config.tlsDir = qEnvironmentVariable("VISTREL_TEST_TLS_DIR");

    if (config.fileName.isEmpty())
        std::printf("Config: built-in defaults\n");
    else
        std::printf("Config: %s\n", qPrintable(config.fileName));
    if (parser.isSet(checkOption))
        return 0;

    VistrelService::LocalService service;
    config.applyTo(service);
    const quint16 port = service.start(QHostAddress(config.address), config.port);
    if (port == 0) {
        std::fprintf(stderr, "Cannot listen on %s:%u\n", qPrintable(config.address),
                     unsigned(config.port));
        return 1;
    }
    const QString origin = u"http://"_s + urlHost(config.address) + u':' + QString::number(port);
    std::printf("Vistrel local service listening on %s\n", qPrintable(origin));
    if (!config.tlsDir.isEmpty()) {
        if (service.startTlsFromDirectory(config.tlsDir) == 0) {
            std::fprintf(stderr, "Cannot serve HTTPS with the certificate in %s\n",
                         qPrintable(config.tlsDir));
            return 1;
        }
        std::printf("Stand-in meeting: https://%s/\n", qPrintable(service.tlsHostAndPort()));
    }
    std::printf("Agent console: %s/\n", qPrintable(origin));
    std::fflush(stdout);
    return app.exec();
}
