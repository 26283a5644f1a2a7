#include "Api/UIStrings.h"
#include "CoBrowsing/DefaultUIView.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Facade/Kit.h"
#include "LocalService.h"
#include "Session/CoBrowsing.h"
#include "Session/Vistrel.h"
#include "TestConfig.h"
#include "Widgets/PassthroughUIImageView.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneCoBrowsing.h>
#include <Vistrel/OrvaneVistrel.h>

#include <QBuffer>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
template<class T>
T *resolve()
{
    return Kit::container().resolve<T>();
}

ApplicationConfig &config()
{
    return resolve<ApplicationConfigWrapper>()->config();
}

QString visitId()
{
    return config().visitConfig.visitId.value_or(QString());
}

QMessageBox *optInDialog()
{
    return qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
}
} // namespace

class tst_BidirectionalMessageHandler : public QObject
{
    Q_OBJECT

    VistrelService::LocalService m_service;
    QWidget m_window;
    QPushButton *m_button = nullptr;

    qsizetype drawings() const { return m_window.findChildren<PassthroughUIImageView *>().size(); }
    /// Milliseconds between the visit's consecutive report POSTs.
    QList<qint64> postGaps(const QString &visit) const
    {
        QList<qint64> gaps;
        QDateTime last;
        for (const auto &r : m_service.requests(u"/api/ix/m"_s)) {
            if (r.method != u"POST"_s || r.queryValue(u"id"_s) != visit)
                continue;
            if (last.isValid())
                gaps.append(last.msecsTo(r.time));
            last = r.time;
        }
        return gaps;
    }

private Q_SLOTS:
    void initTestCase()
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

    void init()
    {
        Orvane::vistrel()->start();
        QVERIFY(m_service.waitForVisitOpen(visitId()));
        m_service.clearRequests();
    }

    void cleanup()
    {
        if (QMessageBox *box = optInDialog())
            box->reject();
        Orvane::coBrowsing()->stop();
        QTRY_VERIFY(m_window.findChildren<DefaultUIView *>().isEmpty());
        config().vistrelConfig.increasedPollingFrequency = false;
    }

    void drawingsStackAndFade()
    {
        QImage red(30, 30, QImage::Format_RGB32);
        red.fill(Qt::red);
        QBuffer png;
        QVERIFY(png.open(QIODevice::WriteOnly) && red.save(&png, "PNG"));
        QVERIFY(m_service.queueCommand(visitId(), R"({"d":{"u":"data:image/png;base64,)" +
                                                      png.data().toBase64() + R"("}})"));
        // Bytes that are no image still give an overlay, for the same time.
        QVERIFY(m_service.queueCommand(visitId(), R"({"d":{"u":"AAAA"}})"_ba));
        QTRY_COMPARE(drawings(), 2);
        const auto *first = m_window.findChild<PassthroughUIImageView *>();
        QCOMPARE(first->geometry(), m_window.rect());
        QVERIFY(first->testAttribute(Qt::WA_TransparentForMouseEvents));
        // Half transparent: the red drawing over the grey window.
        const QColor seen = m_window.grab().toImage().pixelColor(5, 5);
        QVERIFY2(seen.red() > seen.green() + 60 && seen.red() < 250, qPrintable(seen.name()));
        QTRY_COMPARE_WITH_TIMEOUT(drawings(), 0, 8000); // 5 s after their arrival
    }

    void clickThenStop()
    {
        QSignalSpy clicked(m_button, &QPushButton::clicked);
        const QPoint target = m_button->geometry().center() * m_window.devicePixelRatioF();
        QVERIFY(m_service.queueCommand(
            visitId(),
            u"{\"x\": %1, \"y\": %2, \"a\": \"c\"}"_s.arg(target.x()).arg(target.y()).toUtf8()));
        QTRY_COMPARE(clicked.size(), 1);
        QTRY_VERIFY(!resolve<Vistrel>()->isRunning());
    }

    void fasterPolling()
    {
        const QString visit = visitId();
        // A steady stream of reports keeps every flush busy, so the POSTs show the cadence.
        QTimer tagger;
        connect(&tagger, &QTimer::timeout, [] { Orvane::vistrel()->tag(u"t"_s); });
        tagger.start(5);
        QVERIFY(m_service.waitFor([&] { return postGaps(visit).size() >= 5; }));
        // At 0.1 s no gap is shorter than the pause (a coarse timer may fire 5% early).
        const QList<qint64> before = postGaps(visit);
        QCOMPARE_GE(*std::ranges::min_element(before), 90);
        QVERIFY(m_service.queueCommand(visit, R"({"co": {"b": false}})"_ba));
        QTRY_VERIFY(config().vistrelConfig.increasedPollingFrequency.value_or(false));
        const qsizetype switched = postGaps(visit).size() + 1; // from the POST after the switch
        // At 0.03 s gaps below the old pause appear, however slow the machine.
        QVERIFY(m_service.waitFor(
            [&] {
                return std::ranges::any_of(postGaps(visit).mid(switched),
                                           [](qint64 gap) { return gap < 85; });
            },
            20000));
    }

    void optIn_data()
    {
        QTest::addColumn<bool>("accept");
        QTest::addColumn<int>("fetches");
        // The texts are fetched by the first question only.
        QTest::newRow("accept, texts not loaded") << true << 1;
        QTest::newRow("decline, texts loaded") << false << 0;
    }

    void optIn()
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
        const auto buttons = box->buttons();
        const auto choice =
            std::ranges::find(buttons, accept ? u"Share"_s : u"Not now"_s, &QAbstractButton::text);
        QVERIFY(choice != buttons.end());
        QTest::mouseClick(*choice, Qt::LeftButton);
        QTRY_VERIFY(!optInDialog());
        if (accept) {
            // Co-browsing: the widget and a new session on a new visit.
            QTRY_VERIFY(resolve<CoBrowsing>()->view());
            QVERIFY(m_service.waitFor([&] { return visitId() != visit; }));
            QVERIFY(m_service.waitForVisitOpen(visitId()));
            // Co-browsing takes the tenant id as its session id, and the service sees it.
            const QString tenant = config().tenantId.value_or(QString());
            QVERIFY(!tenant.isEmpty());
            QCOMPARE(config().visitConfig.sessionId, std::optional(tenant));
            QCOMPARE(m_service.visit(visitId())->sessionId(), tenant);
        } else {
            QTest::qWait(300);
            QCOMPARE(m_service.requests(u"/api/in/im/c"_s).size(), 0);
            QCOMPARE(visitId(), visit);
            QVERIFY(!resolve<CoBrowsing>()->view());
        }
    }

    void startOpensANewVisit()
    {
        const QString visit = visitId();
        const QString session = config().visitConfig.sessionId.value_or(QString());
        QVERIFY(m_service.queueCommand(visit, R"({"co": {"s": true}})"_ba));
        QVERIFY(m_service.waitFor([&] { return visitId() != visit; }));
        QVERIFY(m_service.waitForVisitOpen(visitId()));
        QCOMPARE(config().visitConfig.sessionId.value_or(QString()), session);
        // Monitoring is forced: the new visit gets a screenshot.
        QVERIFY(m_service.waitForReports(visitId(), [](const auto &reports) {
            return std::ranges::any_of(
                reports, [](const auto &r) { return r.message.screenshotevent_size() > 0; });
        }));
    }
};

QTEST_MAIN(tst_BidirectionalMessageHandler)
#include "tst_bidirectionalmessagehandler.moc"
