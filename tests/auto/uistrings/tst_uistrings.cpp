#include "Api/HttpUtil.h"
#include "Api/OrvaneAPI.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Config/UIStrings.h"
#include "LocalService.h"
#include "TestConfig.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::CannedReply;
using VistrelService::LocalService;

namespace {
constexpr int ReplyTimeoutMs = 30000;

const QByteArray Table = R"({"ui":{"mobile":{"connecting":"Connecting…","error":"Error",)"
                         R"("count":3,"list":["a"],"flag":true,"none":null,"empty":{}}},)"
                         R"("top":"Top","ui.flat":"Flat"})"_ba;
} // namespace

Q_DECLARE_METATYPE(VistrelService::CannedReply)

class tst_UIStrings : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void beforeLoading();
    void lookup_data();
    void lookup();
    void loadRequestsTheLanguage();
    void failedLoadKeepsTable_data();
    void failedLoadKeepsTable();
    void successfulLoadReplacesTable();
    void emptyTableGivesKeys();

private:
    // Loads and returns the error text, or "ok".
    QString load(const QString &language = u"en"_s);

    LocalService m_service;
    ApplicationConfigWrapper m_wrapper;
    HttpUtil m_http{&m_wrapper};
    OrvaneAPI m_api{&m_http};
    std::unique_ptr<UIStrings> m_strings;
};

void tst_UIStrings::initTestCase()
{
    QVERIFY(m_service.start() != 0);
    TestConfig::use(m_service.hostAndPort());
}

void tst_UIStrings::init()
{
    m_service.clearCannedReplies();
    m_service.clearRequests();
    m_service.setStrings(Table);
    m_strings = std::make_unique<UIStrings>(&m_api);
}

QString tst_UIStrings::load(const QString &language)
{
    QStringList outcomes;
    m_strings->load(language, [&outcomes](const std::optional<Error> &error) {
        outcomes.append(error ? error->description() : u"ok"_s);
    });
    if (!QTest::qWaitFor([&outcomes] { return !outcomes.isEmpty(); }, ReplyTimeoutMs))
        return u"no completion"_s;
    return outcomes.size() == 1 ? outcomes.first() : outcomes.join(u" + "_s);
}

void tst_UIStrings::beforeLoading()
{
    QVERIFY(!m_strings->isLoaded());
    QCOMPARE(m_strings->get(u"ui.mobile.connecting"_s), u"ui.mobile.connecting"_s);
    QCOMPARE(m_strings->defaultLanguageCode(), u"en"_s);
}

void tst_UIStrings::lookup_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("expected");
    // Nested objects become dotted keys.
    QTest::newRow("nested") << u"ui.mobile.connecting"_s << u"Connecting…"_s;
    QTest::newRow("nested sibling") << u"ui.mobile.error"_s << u"Error"_s;
    QTest::newRow("top level") << u"top"_s << u"Top"_s;
    QTest::newRow("dotted key in the reply") << u"ui.flat"_s << u"Flat"_s;
    // Everything that is not a string yields the key itself.
    QTest::newRow("missing") << u"ui.mobile.unknown"_s << u"ui.mobile.unknown"_s;
    QTest::newRow("number") << u"ui.mobile.count"_s << u"ui.mobile.count"_s;
    QTest::newRow("array") << u"ui.mobile.list"_s << u"ui.mobile.list"_s;
    QTest::newRow("boolean") << u"ui.mobile.flag"_s << u"ui.mobile.flag"_s;
    QTest::newRow("null") << u"ui.mobile.none"_s << u"ui.mobile.none"_s;
    QTest::newRow("empty object") << u"ui.mobile.empty"_s << u"ui.mobile.empty"_s;
    QTest::newRow("inner node") << u"ui.mobile"_s << u"ui.mobile"_s;
    QTest::newRow("empty key") << QString() << QString();
}

void tst_UIStrings::lookup()
{
    QFETCH(QString, key);
    QFETCH(QString, expected);
    QCOMPARE(load(), u"ok"_s);
    QVERIFY(m_strings->isLoaded());
    QCOMPARE(m_strings->get(key), expected);
}

void tst_UIStrings::loadRequestsTheLanguage()
{
    QCOMPARE(load(u"de"_s), u"ok"_s);
    const auto requests = m_service.requests(u"/api/in/i18n"_s);
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.first().method, u"GET"_s);
    QCOMPARE(requests.first().queryValue(u"lang"_s), u"de"_s);
}

void tst_UIStrings::failedLoadKeepsTable_data()
{
    QTest::addColumn<CannedReply>("reply");
    QTest::addColumn<QString>("expectedError");
    CannedReply array;
    array.body = "[]"_ba;
    QTest::newRow("array") << array
                           << uR"(StringError(mMsg: "Cannot use response as dictionary"))"_s;
    CannedReply garbage;
    garbage.body = "{oops"_ba;
    QTest::newRow("not JSON") << garbage << uR"(StringError(mMsg: "Cannot parse JSON"))"_s;
    CannedReply empty;
    QTest::newRow("no body") << empty << uR"(StringError(mMsg: "data is nil"))"_s;
    CannedReply dropped;
    dropped.dropConnection = true;
    QTest::newRow("connection dropped") << dropped << QString();
}

void tst_UIStrings::failedLoadKeepsTable()
{
    QFETCH(CannedReply, reply);
    QFETCH(QString, expectedError);

    QCOMPARE(load(), u"ok"_s);
    m_service.setCannedReply(u"GET"_s, u"/api/in/i18n"_s, reply);
    const QString outcome = load();
    QVERIFY(outcome != u"ok"_s);
    if (!expectedError.isEmpty())
        QCOMPARE(outcome, expectedError);
    QCOMPARE(m_strings->get(u"ui.mobile.error"_s), u"Error"_s);
}

void tst_UIStrings::successfulLoadReplacesTable()
{
    QCOMPARE(load(), u"ok"_s);
    m_service.setStrings(R"({"other":"Other"})"_ba);
    QCOMPARE(load(), u"ok"_s);
    QCOMPARE(m_strings->get(u"other"_s), u"Other"_s);
    QCOMPARE(m_strings->get(u"ui.mobile.error"_s), u"ui.mobile.error"_s);
}

void tst_UIStrings::emptyTableGivesKeys()
{
    m_service.setStrings("{}"_ba);
    QCOMPARE(load(), u"ok"_s);
    QVERIFY(m_strings->isLoaded());
    QCOMPARE(m_strings->get(u"top"_s), u"top"_s);
}

QTEST_GUILESS_MAIN(tst_UIStrings)
#include "tst_uistrings.moc"
