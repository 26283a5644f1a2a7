#include "Api/HttpUtil.h"
#include "Api/OrvaneAPI.h"
#include "Api/UIStrings.h"
#include "Config/ApplicationConfigWrapper.h"
#include "LocalService.h"
#include "TestConfig.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::CannedReply;

Q_DECLARE_METATYPE(CannedReply)

class tst_UIStrings : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_service.start() != 0);
        TestConfig::use(m_service.hostAndPort());
    }
    void init()
    {
        m_service.clearCannedReplies();
        m_service.setStrings(R"({"ui":{"mobile":{"connecting":"Connecting…","error":"Error",)"
                             R"("count":3}},"ui.flat":"Flat"})"_ba);
        m_strings = std::make_unique<UIStrings>(&m_api);
    }
    void lookup_data();
    void lookup();
    void reload_data();
    void reload();
    void destroyedWhileLoading();
    void language_data();
    void language();

private:
    // The error's text, or "ok".
    QString load(const QString &language = u"en"_s);

    VistrelService::LocalService m_service;
    ApplicationConfigWrapper m_wrapper;
    HttpUtil m_http{&m_wrapper};
    OrvaneAPI m_api{&m_http, TestConfig::serviceHost()};
    std::unique_ptr<UIStrings> m_strings;
};

QString tst_UIStrings::load(const QString &language)
{
    QStringList outcomes;
    m_strings->load(language, [&outcomes](const std::optional<Error> &error) {
        outcomes.append(error ? error->description() : u"ok"_s);
    });
    if (!QTest::qWaitFor([&outcomes] { return !outcomes.isEmpty(); }, 30000))
        return u"no completion"_s;
    return outcomes.join(u" + "_s);
}

void tst_UIStrings::lookup_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("expected");
    // Nested objects become dotted keys.
    QTest::newRow("nested") << u"ui.mobile.connecting"_s << u"Connecting…"_s;
    QTest::newRow("dotted key in the reply") << u"ui.flat"_s << u"Flat"_s;
    // Everything that is not a string yields the key itself.
    QTest::newRow("missing") << u"ui.mobile.unknown"_s << u"ui.mobile.unknown"_s;
    QTest::newRow("number") << u"ui.mobile.count"_s << u"ui.mobile.count"_s;
    QTest::newRow("inner node") << u"ui.mobile"_s << u"ui.mobile"_s;
}

void tst_UIStrings::lookup()
{
    QFETCH(QString, key);
    QFETCH(QString, expected);
    QCOMPARE(m_strings->get(key), key);
    QCOMPARE(load(), u"ok"_s);
    QCOMPARE(m_strings->get(key), expected);
}

void tst_UIStrings::reload_data()
{
    QTest::addColumn<CannedReply>("reply");
    // Empty for a transport error, whose text is Qt's.
    QTest::addColumn<QString>("expectedOutcome");
    const auto withBody = [](const QByteArray &body) {
        CannedReply reply;
        reply.body = body;
        return reply;
    };
    const QString error = u"StringError(mMsg: \"%1\")"_s;
    QTest::newRow("another table") << withBody(R"({"other":"Other"})"_ba) << u"ok"_s;
    QTest::newRow("array") << withBody("[]"_ba)
                           << error.arg(u"Cannot use response as dictionary"_s);
    QTest::newRow("not JSON") << withBody("{oops"_ba) << error.arg(u"Cannot parse JSON"_s);
    QTest::newRow("no body") << withBody({}) << error.arg(u"data is nil"_s);
    QTest::newRow("connection dropped") << CannedReply::dropped() << QString();
}

void tst_UIStrings::reload()
{
    QFETCH(CannedReply, reply);
    QFETCH(QString, expectedOutcome);
    QCOMPARE(load(), u"ok"_s);
    m_service.setCannedReply(u"GET"_s, u"/api/in/i18n"_s, reply);
    const QString outcome = load(u"de"_s);
    if (expectedOutcome.isEmpty())
        QVERIFY2(outcome != u"ok"_s && outcome != u"no completion"_s &&
                     !outcome.startsWith(u"StringError"_s) && !outcome.contains(u" + "_s),
                 qPrintable(outcome));
    else
        QCOMPARE(outcome, expectedOutcome);
    // A failed load keeps the table it had.
    const bool replaced = outcome == u"ok"_s;
    QCOMPARE(m_strings->get(u"ui.mobile.error"_s), replaced ? u"ui.mobile.error"_s : u"Error"_s);
    QCOMPARE(m_strings->get(u"other"_s), replaced ? u"Other"_s : u"other"_s);
    // Qt may send a GET again after a dropped connection.
    QCOMPARE(m_service.requests(u"/api/in/i18n"_s).last().queryValue(u"lang"_s), u"de"_s);
}

void tst_UIStrings::destroyedWhileLoading()
{
    bool completed = false;
    m_strings->load(u"en"_s, [&completed](const std::optional<Error> &) { completed = true; });
    m_strings.reset();
    QTRY_VERIFY_WITH_TIMEOUT(completed, 30000);
}

void tst_UIStrings::language_data()
{
    QTest::addColumn<QStringList>("uiLanguages");
    QTest::addColumn<QString>("expected");
    // The C/POSIX locale names no language, so the default is asked for.
    QTest::newRow("C") << QStringList{u"C"_s} << u"en"_s;
    QTest::newRow("POSIX") << QStringList{u"POSIX"_s} << u"en"_s;
    QTest::newRow("none") << QStringList() << u"en"_s;
    QTest::newRow("region dropped") << QStringList{u"de-CH"_s, u"en"_s} << u"de"_s;
    QTest::newRow("script and region dropped") << QStringList{u"zh-Hans-CN"_s} << u"zh"_s;
    QTest::newRow("en-US") << QStringList{u"en-US"_s} << u"en"_s;
}

void tst_UIStrings::language()
{
    QFETCH(QStringList, uiLanguages);
    QFETCH(QString, expected);
    QCOMPARE(UIStrings::languageFor(uiLanguages, u"en"_s), expected);
}

QTEST_GUILESS_MAIN(tst_UIStrings)
#include "tst_uistrings.moc"
