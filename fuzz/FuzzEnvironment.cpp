#include "FuzzEnvironment.h"

#include "Core/Log.h"

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

QByteArray FuzzEnvironment::bytes(const uint8_t *data, size_t size)
{
    return QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
}
