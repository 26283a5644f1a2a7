#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneConference.h>
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
    if (Orvane::configuration()->server() != QStringLiteral("assist.example.com"))
        return 2;
    // The video call comes from its own library.
    Orvane::conference()->queueStatus(QStringLiteral("customer"), [](int) {});
    return Orvane::conference() == Orvane::conferenceInstance() && !Orvane::conference()->isInCall()
               ? 0
               : 3;
}
