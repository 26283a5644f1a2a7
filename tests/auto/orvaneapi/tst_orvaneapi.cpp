#include "Api/HttpUtil.h"
#include "Api/MobileInitDTO.h"
#include "Api/MonitoringConfigDTO.h"
#include "Api/OrvaneAPI.h"
#include "ClosedPort.h"
#include "Config/ApplicationConfigWrapper.h"
#include "LocalService.h"
#include "TestConfig.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
// One word per completion call, so a whole sequence of calls compares at once.
template<class T>
QString outcome(const Result<T> &result)
{
    if (result.isOk())
        return u"ok"_s;
    if (result.error().networkError())
        return u"transport error"_s;
    return result.error().stringError()->message();
}
} // namespace

Q_DECLARE_METATYPE(OrvaneAPI::QueryItems)

class tst_OrvaneAPI : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { QVERIFY(m_service.start() != 0); }
    void buildUrl_data();
    void buildUrl();
    void completions_data();
    void completions();

private:
    VistrelService::LocalService m_service;
    ApplicationConfigWrapper m_wrapper;
    HttpUtil m_http{&m_wrapper};
    OrvaneAPI m_api{&m_http, TestConfig::serviceHost()};
};

void tst_OrvaneAPI::buildUrl_data()
{
    QTest::addColumn<std::optional<QString>>("httpProtocol");
    QTest::addColumn<OrvaneAPI::QueryItems>("query");
    QTest::addColumn<QString>("expected");
    const QString base = u"://assist.example:8443/api/x"_s;
    QTest::newRow("scheme from the config file")
        << std::optional(u"https"_s) << OrvaneAPI::QueryItems{} << u"https"_s + base;
    QTest::newRow("no HttpProtocol key")
        << std::optional<QString>() << OrvaneAPI::QueryItems{{u"lang"_s, u"en"_s}}
        << base + u"?lang=en"_s;
    QTest::newRow("delimiters in values")
        << std::optional(u"http"_s) << OrvaneAPI::QueryItems{{u"a"_s, u"b c&d=e+f%g#h/i?"_s}}
        << u"http"_s + base + u"?a=b%20c%26d%3De%2Bf%25g%23h%2Fi%3F"_s;
    QTest::newRow("non-ASCII key and value")
        << std::optional(u"http"_s) << OrvaneAPI::QueryItems{{u"schlüssel"_s, u"Über"_s}}
        << u"http"_s + base + u"?schl%C3%BCssel=%C3%9Cber"_s;
    // A null value once dropped the "=".
    QTest::newRow("null value") << std::optional(u"http"_s)
                                << OrvaneAPI::QueryItems{{u"url"_s, QString()}, {u"b"_s, u""_s}}
                                << u"http"_s + base + u"?url=&b="_s;
}

void tst_OrvaneAPI::buildUrl()
{
    QFETCH(std::optional<QString>, httpProtocol);
    QFETCH(OrvaneAPI::QueryItems, query);
    QFETCH(QString, expected);
    TestConfig::use(u"assist.example:8443"_s, httpProtocol);
    QCOMPARE(m_api.buildUrl(u"api/x"_s, query.isEmpty() ? std::nullopt : std::optional(query)),
             expected);
}

void tst_OrvaneAPI::completions_data()
{
    QTest::addColumn<bool>("mobileInit");
    QTest::addColumn<bool>("portClosed");
    QTest::addColumn<QStringList>("expected");
    // A transport error is reported, and the call then goes on as if nothing had come.
    QTest::newRow("mobileInit, closed port")
        << true << true << QStringList{u"transport error"_s, u"Data is nil"_s};
    QTest::newRow("mobileInit, answered") << true << false << QStringList{u"ok"_s};
    QTest::newRow("closeXhr, closed port")
        << false << true << QStringList{u"transport error"_s, u"ok"_s};
    QTest::newRow("closeXhr, answered") << false << false << QStringList{u"ok"_s};
}

void tst_OrvaneAPI::completions()
{
    QFETCH(bool, mobileInit);
    QFETCH(bool, portClosed);
    QFETCH(QStringList, expected);
    TestConfig::use(portClosed ? u"127.0.0.1:"_s + QString::number(closedPort())
                               : m_service.hostAndPort());
    QStringList outcomes;
    const auto record = [&outcomes](const auto &result) { outcomes.append(outcome(result)); };
    if (mobileInit)
        m_api.mobileInit(MobileInitDTO{}, record);
    else
        m_api.closeXhr(u"1"_s, u"S"_s, u"T"_s, u"V"_s, u"Main"_s, u"l"_s, record);
    // Every call happens within the one reply handler: none can follow once the count is reached.
    QTRY_COMPARE_WITH_TIMEOUT(outcomes.size(), expected.size(), 30000);
    QCOMPARE(outcomes, expected);
    if (!mobileInit && !portClosed) {
        // Each argument under its own key, in this order.
        const auto requests = m_service.requests(u"/api/ix/m"_s);
        const auto request = requests.value(requests.size() - 1);
        QCOMPARE(request.method, u"DELETE"_s);
        QCOMPARE(request.query.toString(), u"id=1&sId=S&tId=T&vId=V&url=Main&fsTy=l"_s);
    }
}

QTEST_GUILESS_MAIN(tst_OrvaneAPI)
#include "tst_orvaneapi.moc"
