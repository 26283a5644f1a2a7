#include "LocalService.h"

#include <QCommandLineParser>
#include <QGuiApplication>

#include <cstdio>

using namespace Qt::StringLiterals;

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
        u"Vistrel local service: the service side of the kit's endpoints on loopback."_s);
    parser.addHelpOption();
    QCommandLineOption portOption(u"port"_s, u"Port to listen on (0 picks a free one)."_s,
                                  u"port"_s, u"8080"_s);
    QCommandLineOption addressOption(u"address"_s, u"Address to listen on."_s, u"address"_s,
                                     u"127.0.0.1"_s);
    // The stand-in meeting of video calls needs HTTPS; the certificate and key come from
    // tests/tls/make-test-authority.sh.
    QCommandLineOption tlsDirOption(
        u"tls-dir"_s,
        u"Also serve HTTPS on a free loopback port with <dir>/server.pem and server.key "
        "(default: $VISTREL_TEST_TLS_DIR)."_s,
        u"dir"_s, qEnvironmentVariable("VISTREL_TEST_TLS_DIR"));
    parser.addOption(portOption);
    parser.addOption(addressOption);
    parser.addOption(tlsDirOption);
    parser.process(app);

    VistrelService::LocalService service;
    const quint16 port = service.start(QHostAddress(parser.value(addressOption)),
                                       quint16(parser.value(portOption).toUInt()));
    if (port == 0) {
        std::fprintf(stderr, "Cannot listen on %s:%s\n", qPrintable(parser.value(addressOption)),
                     qPrintable(parser.value(portOption)));
        return 1;
    }
    std::printf("Vistrel local service listening on http://%s:%u\n",
                qPrintable(parser.value(addressOption)), unsigned(port));
    if (const QString tlsDir = parser.value(tlsDirOption); !tlsDir.isEmpty()) {
        if (service.startTlsFromDirectory(tlsDir) == 0) {
            std::fprintf(stderr, "Cannot serve HTTPS with the certificate in %s\n",
                         qPrintable(tlsDir));
            return 1;
        }
        std::printf("Stand-in meeting: https://%s/\n", qPrintable(service.tlsHostAndPort()));
    }
    std::printf("Agent console: http://%s:%u/\n", qPrintable(parser.value(addressOption)),
                unsigned(port));
    std::fflush(stdout);
    return app.exec();
}
