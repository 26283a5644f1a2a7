// The demo host app in QML: the widgets demo's screens as a Qt Quick app, as it would ship on a
// phone or an embedded screen. The pages reach the kit through one C++ object, DemoSession.
#include "DemoHost.h"
#include "DemoSession.h"

#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QUrl>

using namespace Qt::StringLiterals;

int main(int argc, char *argv[])
{
    DemoHost::prepareEnvironment();
    QGuiApplication app(argc, argv);
    // The kit keeps the device's identifier under these names.
    QGuiApplication::setApplicationName(u"vistrel-demo-qml"_s);
    QGuiApplication::setOrganizationName(u"Vistrel"_s);

    DemoHost host;
    if (!host.setUp(u"Vistrel demo host app in QML."_s, QString::fromLatin1(DemoSession::TenantId),
                    DemoHost::monitoringConfig(DemoSession::PasswordTag,
                                               QString::fromLatin1(DemoSession::CardNumberClass))))
        return 1;

    QQmlApplicationEngine engine;
    // Where qt_add_qml_module puts the module's files (its RESOURCE_PREFIX and URI).
    engine.load(QUrl(u"qrc:/qt/qml/VistrelDemo/Main.qml"_s));
    if (engine.rootObjects().isEmpty())
        return 1;

    host.start();
    return app.exec();
}
