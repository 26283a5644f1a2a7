#include "LocalService.h"
#include "ServiceConfig.h"
#include "ServiceTestSupport.h"

#include "Api/MonitoringConfigDTO.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using VistrelService::ServiceConfig;

class TestServiceConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void refused_data();
    void refused();
    void initReplyCarriesPrivateViewsPerTenant();
    void commandLine_data();
    void commandLine();

private:
    QString write(const QString &name, const QByteArray &json)
    {
        QFile file(m_dir.filePath(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(json) != json.size())
            qFatal("cannot write %s", qPrintable(file.fileName()));
        return file.fileName();
    }

    QTemporaryDir m_dir;
    /// Holds a port, so a service that takes the file's port over --port cannot start.
    QTcpServer m_busy;
};

void TestServiceConfig::refused_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("error");
    // Each row is a mistake that must not start a service quietly doing something else.
    const auto row = [](const char *bug, const QByteArray &json, const QString &error) {
        QTest::newRow(bug) << json << error;
    };
    row("missing file read as the defaults", {}, u": cannot read: "_s);
    row("parse error without its place", R"({"port": 80,})", u" at offset 13"_s);
    row("array read as an empty config", "[]", u": expected a JSON object at the top level"_s);
    row("misspelt key ignored", R"({"prot": 80})", u": key \"prot\": unknown key; known here: "_s);
    row("misspelt reply key ignored", R"({"initReply": {"privateTag": [1]}})",
        u": key \"initReply.privateTag\": unknown key"_s);
    row("misspelt tenant key ignored", R"({"tenants": {"acme": {"initreply": {}}}})",
        u": key \"tenants.acme.initreply\": unknown key; known here: initReply"_s);
    row("port as text read as 0", R"({"port": "8080"})",
        u": key \"port\": expected an integer from 0 to 65535, got a string"_s);
    row("port cut to 16 bits", R"({"port": 70000})", u": key \"port\": expected an integer"_s);
    row("list entries unchecked", R"({"initReply": {"privateTags": [101, "102"]}})",
        u": key \"initReply.privateTags[1]\": expected an integer"_s);
    row("text passed on where devices need a boolean",
        R"({"tenants": {"acme": {"initReply": {"chatActivated": "no"}}}})",
        u": key \"tenants.acme.initReply.chatActivated\": expected a boolean, got a string"_s);
}

void TestServiceConfig::refused()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, error);
    const QString file = json.isNull() ? m_dir.filePath(u"absent.json"_s)
                                       : write(QString::fromLatin1(QTest::currentDataTag()), json);
    QString message;
    QVERIFY(!ServiceConfig::load(file, &message));
    QVERIFY2(message.startsWith(file + u": "_s) && message.contains(error), qPrintable(message));
}

void TestServiceConfig::initReplyCarriesPrivateViewsPerTenant()
{
    QString error;
    const auto config = ServiceConfig::load(write(u"views.json"_s, R"({"initReply": {
        "privateTags": [101, 102], "privateClasses": ["QLineEdit"], "chatActivated": false},
        "tenants": {"acme": {"initReply": {"privateTags": [7]}}}})"),
                                            &error);
    QVERIFY2(config, qPrintable(error));
    VistrelService::LocalService service;
    QVERIFY(service.start() != 0);
    config->applyTo(service);
    QNetworkAccessManager manager;
    // The tenant's reply builds on the file's: only its tags differ.
    for (const auto &[tenant, tags] : {std::pair{"other", QStringList{u"101"_s, u"102"_s}},
                                       std::pair{"acme", QStringList{u"7"_s}}}) {
        const auto reply =
            ServiceTest::sendHttp(manager, service.hostAndPort(), "POST", u"/api/in/im/c"_s,
                                  R"({"visitId":"V1","tenantId":")" + QByteArray(tenant) + "\"}");
        // Read as the device reads it: every key it requires must still be there.
        const auto decoded = VistrelKit::MonitoringConfigDTO::fromJson(
            VistrelKit::JsonUtils::parse(reply.body).value_or(VistrelKit::Json()));
        QVERIFY2(decoded.isOk(), reply.body.constData());
        QCOMPARE(decoded.value().ios.blacklist, tags);
        QCOMPARE(decoded.value().ios.blacklistClasses, QStringList{u"QLineEdit"_s});
        QCOMPARE(decoded.value().chatActivated, std::optional<bool>(false));
    }
}

void TestServiceConfig::commandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("configVariable");
    // The file the "Config:" line names; empty: the service must exit 2 with the variable's error.
    QTest::addColumn<QString>("configRead");
    // A port the console must not be on: the one the file or the default would wrongly give.
    QTest::addColumn<int>("wrongPort");

    QVERIFY(m_busy.listen(QHostAddress::LocalHost));
    const QString bad = write(u"bad.json"_s, R"({"prot": 1})");
    const QString busy =
        write(u"busy.json"_s, "{\"port\": " + QByteArray::number(m_busy.serverPort()) + '}');
    const QString anyPort = write(u"any-port.json"_s, R"({"port": 0})");
    const QString example = QString::fromUtf8(VISTREL_SERVICE_EXAMPLE_CONFIG);
    const QStringList port0{u"--port"_s, u"0"_s};
    QTest::newRow("variable ignored") << QStringList() << bad << QString() << 0;
    QTest::newRow("variable beats --config, file beats --port")
        << QStringList{u"--config"_s, busy} + port0 << bad << busy << int(m_busy.serverPort());
    QTest::newRow("file's port ignored") << QStringList{u"--config"_s, anyPort} << QString()
                                         << anyPort << int(ServiceConfig::DefaultPort);
    QTest::newRow("example file out of date")
        << QStringList{u"--config"_s, example} + port0 << QString() << example << 0;
}

void TestServiceConfig::commandLine()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, configVariable);
    QFETCH(QString, configRead);
    QFETCH(int, wrongPort);
    qunsetenv("VISTREL_TEST_TLS_DIR");
    qputenv("VISTREL_SERVICE_CONFIG", configVariable.toLocal8Bit());
    QProcess process;
    process.start(QString::fromUtf8(VISTREL_SERVICE_BINARY), arguments);
    QString output;
    QVERIFY(QTest::qWaitFor(
        [&] {
            output += QString::fromUtf8(process.readAllStandardOutput());
            return process.state() == QProcess::NotRunning || output.contains(u"Agent console:"_s);
        },
        20000));
    const bool exited = process.state() == QProcess::NotRunning;
    process.kill();
    process.waitForFinished();
    if (configRead.isEmpty()) {
        QCOMPARE(exited ? process.exitCode() : -1, 2);
        const QString errors = QString::fromUtf8(process.readAllStandardError());
        QVERIFY2(errors.contains(configVariable + u": key \"prot\": unknown key"_s),
                 qPrintable(errors));
        return;
    }
    QVERIFY2(output.contains(u"Config: "_s + configRead + u'\n'), qPrintable(output));
    const QRegularExpressionMatch console =
        QRegularExpression(u"Agent console: http://127\\.0\\.0\\.1:(\\d+)/"_s).match(output);
    QVERIFY2(console.hasMatch(), qPrintable(output));
    QVERIFY(console.captured(1).toInt() != wrongPort);
}

QTEST_GUILESS_MAIN(TestServiceConfig)
#include "tst_serviceconfig.moc"
