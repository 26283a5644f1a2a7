#include "TestConfig.h"

#include "Config/ConstantUtils.h"
#include "Config/ServiceHost.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneConfiguration.h>

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

QTemporaryDir &TestConfig::directory()
{
    static QTemporaryDir dir;
    return dir;
}

VistrelKit::ServiceHost *TestConfig::serviceHost()
{
    static VistrelKit::ServiceHost host;
    return &host;
}

void TestConfig::use(const QString &host, const std::optional<QString> &httpProtocol,
                     const std::optional<QString> &webSocketProtocol,
                     const std::optional<QString> &cdnHost)
{
    // The device identifier goes where Qt keeps test data, not into the user's own folders.
    QStandardPaths::setTestModeEnabled(true);
    QJsonObject object{{u"Hostname"_s, host}, {u"CdnHostname"_s, cdnHost.value_or(host)}};
    if (httpProtocol)
        object.insert(u"HttpProtocol"_s, *httpProtocol);
    if (webSocketProtocol)
        object.insert(u"WebSocketProtocol"_s, *webSocketProtocol);
    const QString path = directory().filePath(u"Config.json"_s);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        qFatal("Cannot write the test config file");
    file.write(QJsonDocument(object).toJson());
    file.close();
    VistrelKit::ConstantUtils::setConfigFile(path);
    VistrelKit::Orvane::configuration()->setServer(host);
    serviceHost()->setServer(host);
}
