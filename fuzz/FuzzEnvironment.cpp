#include "FuzzEnvironment.h"

#include "Api/HttpUtil.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Core/Log.h"
#include "Network/Bidirectional/BidirectionalMessageParser.h"

#include <QApplication>

using namespace VistrelKit;

void FuzzEnvironment::silenceLog()
{
    Log::setHandler([](const QString &, const QString &, const QString &) {});
}

QApplication *FuzzEnvironment::application()
{
    if (auto *app = qobject_cast<QApplication *>(QCoreApplication::instance()))
        return app;
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // libFuzzer's own arguments are not for Qt.
    static int argc = 1;
    static char name[] = "vistrel-fuzz";
    static char *argv[] = {name, nullptr};
    return new QApplication(argc, argv);
}

FuzzEnvironment::TransportParts FuzzEnvironment::transportParts()
{
    auto *config = new ApplicationConfigWrapper;
    auto *parser = new BidirectionalMessageParser;
    QObject::connect(parser, &BidirectionalMessageParser::messageReceived,
                     [](const BidirectionalMessage &message) { (void)message.toString(); });
    return {config, new HttpUtil(config), parser};
}

QByteArray FuzzEnvironment::bytes(const uint8_t *data, size_t size)
{
    return QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
}
