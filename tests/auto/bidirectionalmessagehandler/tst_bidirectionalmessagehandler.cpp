#include "CoBrowsing/CoBrowsing.h"
#include "CoBrowsing/DefaultUIView.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Config/UIStrings.h"
#include "Core/Injection.h"
#include "LocalService.h"
#include "LogCapture.h"
#include "Monitoring/PassthroughUIImageView.h"
#include "Network/MessageSenderManager.h"
#include "Network/Xhr/XhrMessageSender.h"
#include "TestConfig.h"
#include "Vistrel/Vistrel.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneVistrel.h>

#include <QBuffer>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::LocalService;
using VistrelService::RecordedRequest;

namespace {
const QString messagePath = u"/api/ix/m"_s;

template<class T>
T *resolve()
{
    return Injection::getContainer().resolve<T>();
}

ApplicationConfig &config()
{
    return resolve<ApplicationConfigWrapper>()->config();
}

QString visitId()
{
    return config().visitConfig.visitId.value_or(QString());
}

QByteArray pngCommand(QColor colour)
{
    QImage image(30, 30, QImage::Format_ARGB32);
    image.fill(colour);
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return R"({"d":{"u":"data:image/png;base64,)" + png.toBase64() + R"("}})";
}

QList<PassthroughUIImageView *> drawingsOn(QWidget *window)
{
    return window->findChildren<PassthroughUIImageView *>();
}

QMessageBox *optInDialog()
{
    return qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
}
} // namespace

class tst_BidirectionalMessageHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void drawingsStackAndFade();
    void clickThenStop();
    void fasterPolling();
    void optIn_data();
    void optIn();
    void startOpensANewVisit();
    void unknownAndIdleParts();

private:
    bool startSession();
    QList<QDateTime> postTimes(const QString &visit) const;

    LocalService m_service;
    QWidget m_window;
    QPushButton *m_button = nullptr;
    LogCapture m_log;
};

void tst_BidirectionalMessageHandler::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY(m_service.start() != 0);
    TestConfig::use(m_service.hostAndPort());
    m_service.setStrings(R"({"ui":{"mobile":{"confirm":{"title":"Share your screen?",)"
                         R"("message":"An agent asks to see your screen."}},)"
                         R"("confirm":{"accept":"Share","decline":"Not now"}}})");
    m_window.resize(300, 300);
    m_button = new QPushButton(u"Target"_s, &m_window);
    m_button->setGeometry(100, 200, 80, 40);
    m_window.show();
    QVERIFY(QTest::qWaitForWindowActive(&m_window));
    QVERIFY(Orvane::initConfig(u"tenant-1"_s, u"token-1"_s));
}

void tst_BidirectionalMessageHandler::init()
{
    m_log.clear();
    QVERIFY(startSession());
    m_service.clearRequests();
}

void tst_BidirectionalMessageHandler::cleanup()
{
    if (QMessageBox *box = optInDialog())
        box->reject();
    Orvane::coBrowsing();
    resolve<CoBrowsing>()->stop();
    QTRY_VERIFY(m_window.findChildren<DefaultUIView *>().isEmpty());
    config().vistrelConfig.increasedPollingFrequency = false;
}

bool tst_BidirectionalMessageHandler::startSession()
{
    Orvane::vistrel()->start();
    return m_service.waitForVisitOpen(visitId());
}

QList<QDateTime> tst_BidirectionalMessageHandler::postTimes(const QString &visit) const
{
    QList<QDateTime> times;
    for (const RecordedRequest &r : m_service.requests(messagePath)) {
        if (r.method == u"POST"_s && r.queryValue(u"id"_s) == visit)
            times.append(r.time);
    }
    return times;
}

void tst_BidirectionalMessageHandler::drawingsStackAndFade()
{
    QVERIFY(m_service.queueCommand(visitId(), pngCommand(Qt::red)));
    QTRY_COMPARE(drawingsOn(&m_window).size(), 1);
    QVERIFY(m_service.queueCommand(visitId(), pngCommand(Qt::blue)));
    QTRY_COMPARE(drawingsOn(&m_window).size(), 2);
    const PassthroughUIImageView *first = drawingsOn(&m_window).first();
    QCOMPARE(first->geometry(), m_window.rect());
    QVERIFY(first->testAttribute(Qt::WA_TransparentForMouseEvents));
    // Half transparent: the red drawing over the grey window.
    const QColor seen = m_window.grab().toImage().pixelColor(5, 5);
    QVERIFY2(seen.red() > seen.green() + 60 && seen.red() < 250, qPrintable(seen.name()));
    // Gone 5 s after its arrival, each on its own timer.
    QTRY_COMPARE_WITH_TIMEOUT(drawingsOn(&m_window).size(), 1, 7000);
    QTRY_COMPARE_WITH_TIMEOUT(drawingsOn(&m_window).size(), 0, 7000);
}

void tst_BidirectionalMessageHandler::clickThenStop()
{
    QSignalSpy clicked(m_button, &QPushButton::clicked);
    const QString visit = visitId();
    const qreal dpr = m_window.devicePixelRatioF();
    const QPoint target = m_button->geometry().center() * dpr;
    QVERIFY(m_service.queueCommand(
        visit, u"{\"x\": %1, \"y\": %2, \"a\": \"c\"}"_s.arg(target.x()).arg(target.y()).toUtf8()));
    QTRY_COMPARE(clicked.size(), 1);
    QTRY_VERIFY(!resolve<Vistrel>()->isRunning());
    QVERIFY(m_service.waitFor([&] {
        const auto *v = m_service.visit(visit);
        return v && v->state() == VistrelService::Visit::State::Ended;
    }));
}

void tst_BidirectionalMessageHandler::fasterPolling()
{
    auto *sender = resolve<MessageSenderManager>()->xhrSender();
    const QString visit = visitId();
    // A steady stream of reports keeps every flush busy, so the POSTs show the cadence.
    QTimer tagger;
    connect(&tagger, &QTimer::timeout, [] { Orvane::vistrel()->tag(u"t"_s); });
    tagger.start(5);
    QTest::qWait(1000);
    const qsizetype before = postTimes(visit).size();
    QVERIFY(m_service.queueCommand(visit, R"({"co": {"b": false}})"_ba));
    QTRY_VERIFY(config().vistrelConfig.increasedPollingFrequency.value_or(false));
    QTRY_COMPARE(sender->currentInterval(), 0.03);
    const qsizetype switched = postTimes(visit).size();
    QTest::qWait(1000);
    tagger.stop();
    const qsizetype after = postTimes(visit).size() - switched;
    // Each POST takes its round trip on top of the pause: 0.1 s allows at most 10 a second,
    // 0.03 s clearly more than the same second before the switch.
    const QString counts = u"before %1, after %2"_s.arg(before).arg(after);
    QVERIFY2(before <= 10, qPrintable(counts));
    QVERIFY2(after >= before * 1.4, qPrintable(counts));
}

void tst_BidirectionalMessageHandler::optIn_data()
{
    QTest::addColumn<bool>("accept");
    QTest::addColumn<int>("fetches");
    // The texts are fetched by the first question only.
    QTest::newRow("accept, texts not loaded") << true << 1;
    QTest::newRow("decline, texts loaded") << false << 0;
}

void tst_BidirectionalMessageHandler::optIn()
{
    QFETCH(bool, accept);
    QFETCH(int, fetches);

    QCOMPARE(resolve<UIStrings>()->isLoaded(), fetches == 0);
    const QString visit = visitId();
    QVERIFY(m_service.queueCommand(visit, R"({"co": {"opt": true}})"_ba));
    QTRY_VERIFY(optInDialog());
    QMessageBox *box = optInDialog();
    QCOMPARE(box->text(), u"Share your screen?"_s);
    QCOMPARE(box->informativeText(), u"An agent asks to see your screen."_s);
    QCOMPARE(m_service.requests(u"/api/in/i18n"_s).size(), fetches);
    QPushButton *share = nullptr;
    QPushButton *notNow = nullptr;
    for (QAbstractButton *b : box->buttons()) {
        if (b->text() == u"Share"_s)
            share = qobject_cast<QPushButton *>(b);
        if (b->text() == u"Not now"_s)
            notNow = qobject_cast<QPushButton *>(b);
    }
    QVERIFY(share && notNow);
    const qsizetype initsBefore = m_service.requests(u"/api/in/im/c"_s).size();
    QTest::mouseClick(accept ? share : notNow, Qt::LeftButton);
    QTRY_VERIFY(!optInDialog());
    if (accept) {
        // Co-browsing: the widget and a new session on a new visit.
        QTRY_VERIFY(resolve<CoBrowsing>()->view());
        QVERIFY(m_service.waitFor([&] { return visitId() != visit; }));
        QVERIFY(m_service.waitForVisitOpen(visitId()));
    } else {
        QTest::qWait(300);
        QCOMPARE(m_service.requests(u"/api/in/im/c"_s).size(), initsBefore);
        QCOMPARE(visitId(), visit);
        QVERIFY(!resolve<CoBrowsing>()->view());
    }
}

void tst_BidirectionalMessageHandler::startOpensANewVisit()
{
    const QString visit = visitId();
    const QString session = config().visitConfig.sessionId.value_or(QString());
    QVERIFY(m_service.queueCommand(visit, R"({"co": {"s": true}})"_ba));
    QVERIFY(m_service.waitFor([&] { return visitId() != visit; }));
    QVERIFY(m_service.waitForVisitOpen(visitId()));
    QCOMPARE(config().visitConfig.sessionId.value_or(QString()), session);
    // Monitoring is forced: the new visit gets a screenshot.
    QVERIFY(m_service.waitForReports(visitId(), [](const auto &reports) {
        return std::any_of(reports.begin(), reports.end(),
                           [](const auto &r) { return r.message.screenshotevent_size() > 0; });
    }));
}

void tst_BidirectionalMessageHandler::unknownAndIdleParts()
{
    // Parts present but false do nothing; a tap on nothing is only logged.
    const QString visit = visitId();
    QVERIFY(m_service.queueCommand(
        visit, R"({"a": "x", "co": {"s": false, "opt": false}, "x": 99999, "y": 99999})"_ba));
    QTRY_VERIFY(m_log.contains(u"[WARNING] BidirectionalMessageHandler: View not found"_s));
    QVERIFY(resolve<Vistrel>()->isRunning());
    QCOMPARE(visitId(), visit);
    QVERIFY(!optInDialog());
    // Bytes that are no image still give an overlay, for the same time.
    QVERIFY(m_service.queueCommand(visit, R"({"d":{"u":"AAAA"}})"_ba));
    QTRY_COMPARE(drawingsOn(&m_window).size(), 1);
}

QTEST_MAIN(tst_BidirectionalMessageHandler)
#include "tst_bidirectionalmessagehandler.moc"
