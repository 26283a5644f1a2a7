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
    parser.addOption(portOption);
    parser.addOption(addressOption);
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
    std::printf("Agent console: http://%s:%u/\n", qPrintable(parser.value(addressOption)),
                unsigned(port));
    std::fflush(stdout);
    return app.exec();
}
