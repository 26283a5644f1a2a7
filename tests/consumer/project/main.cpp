#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneConfiguration.h>

#include <QGuiApplication>

#include <cstdio>

using namespace VistrelKit;

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    auto init = Orvane::initConfig(QStringLiteral("tenant"), QStringLiteral("token"));
    if (!init)
        return 1;
    init->withCustomServer(QStringLiteral("assist.example.com"));
    Orvane::configuration()->setServer(QStringLiteral("assist.example.com"));
    std::printf("consumer: server=%s cdn=%s\n", qPrintable(Orvane::configuration()->server()),
                qPrintable(Orvane::configuration()->cdnPath()));
    return Orvane::configuration()->server() == QStringLiteral("assist.example.com") ? 0 : 2;
}
