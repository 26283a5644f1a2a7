#include "Api/HttpUtil.h"
#include "Api/OrvaneAPI.h"
#include "ChatEndpoint.h"
#include "Config/ApplicationConfigWrapper.h"
#include "LocalService.h"
#include "LogCapture.h"
#include "TestConfig.h"
#include "WebChat/ChatPage.h"
#include "WebChat/ChatView.h"
#include "WebChat/ChatViewController.h"
#include "WebChat/DocumentPreview.h"
#include "WebChat/WebChat.h"

#include <QDir>
#include <QFileInfo>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QWebEngineView>

using namespace Qt::StringLiterals;
using namespace VistrelKit;
using VistrelService::CannedReply;
using DocumentKind = VistrelService::ChatEndpoint::DocumentKind;

Q_DECLARE_METATYPE(std::optional<GrowthActionParams>)

namespace {
constexpr int patience = 30000;

// Runs script in the page and waits for its value.
QVariant evaluate(QWebEnginePage *page, const QString &script)
{
    QVariant result;
    bool done = false;
    page->runJavaScript(script, [&](const QVariant &value) {
        result = value;
        done = true;
    });
    return QTest::qWaitFor([&] { return done; }, patience) ? result : QVariant();
}
} // namespace

class tst_WebChat : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        TestConfig::use(m_service.start() ? m_service.hostAndPort() : QString());
        QVERIFY(m_service.port());
        m_window.resize(400, 700);
        m_window.show();
        QVERIFY(QTest::qWaitForWindowActive(&m_window));
    }

    void init()
    {
        ApplicationConfig &config = m_wrapper.config();
        config.tenantId = u"tenant-1"_s;
        config.activeUserTag.emplace().id = u"visitor-1"_s;
    }

    void cleanup()
    {
        if (ChatView *view = WebChat::chatViewOf(&m_window))
            view->remove();
        for (QWidget *child : m_window.findChildren<QWidget *>(Qt::FindDirectChildrenOnly))
            delete child;
        QTRY_VERIFY(!WebChat::chatViewOf(&m_window));
        m_service.clearCannedReplies();
        m_service.clearRequests();
        m_log.clear();
    }

    void chatUrl_data()
    {
        QTest::addColumn<std::optional<GrowthActionParams>>("params");
        QTest::addColumn<QString>("url");
        const QString start = u"http://c/cdn/chat/chat.html?1700000000#d=s:1&tId=t&vId=v&"_s;
        QTest::newRow("no texts") << std::optional<GrowthActionParams>()
                                  << start + u"title=&message=&hint=&color=&n=true&eU=true"_s;
        // The query set keeps "&", so the fragment's own separator shows up inside a text.
        QTest::newRow("query characters stay")
            << std::optional(GrowthActionParams{u"#fff"_s, u"a=b?/"_s, u"Hi & bye"_s, {}})
            << start + u"title=Hi%20&%20bye&message=&hint=a=b?/&color=%23fff&n=true&eU=true"_s;
        QTest::newRow("the rest is encoded")
            << std::optional(GrowthActionParams{{}, {}, {}, u"50% off \"ü\" <1>"_s})
            << start + u"title=&message=50%25%20off%20%22%C3%BC%22%20%3C1%3E&hint=&color="
                       "&n=true&eU=true"_s;
    }
    void chatUrl()
    {
        QFETCH(std::optional<GrowthActionParams>, params);
        QFETCH(QString, url);
        QCOMPARE(ChatView::chatUrl(u"http://c/cdn"_s, u"s:1"_s, 1700000000, u"t"_s, u"v"_s, params),
                 url);
    }

    void open()
    {
        QSignalSpy opened(&m_webChat, &WebChat::opened);
        // A second open while the first fetches, and a third once the chat shows, do nothing.
        m_webChat.open(&m_window, u"tenant-1"_s);
        m_webChat.open(&m_window, u"tenant-1"_s);
        ChatView *view = waitForChat();
        QVERIFY(view);
        m_webChat.open(&m_window, u"tenant-1"_s);
        QTest::qWait(300);
        QCOMPARE(m_service.requests(u"/api/in/wc/c/tenant-1"_s).size(), 1);
        QCOMPARE(m_window.findChildren<ChatView *>().size(), 1);
        QCOMPARE(opened.size(), 1);
        QCOMPARE(view->geometry(), m_window.rect());
        // The page got the service's texts, the tenant and the visitor.
        QCOMPARE(evaluate(view->page(), u"document.querySelector('input, textarea').placeholder"_s),
                 QVariant(u"Type a message"_s));
        QVERIFY(
            view->url().contains(u"#d=%1&tId=tenant-1&vId=visitor-1&title=Chat%20with%20us&"_s.arg(
                m_service.hostAndPort())));
    }

    void openFails_data()
    {
        QTest::addColumn<QByteArray>("configuration");
        QTest::addColumn<bool>("user");
        QTest::addColumn<QString>("line");
        QTest::newRow("configuration not JSON")
            << "oops"_ba << true
            << u"[ERROR] WebChat: Get WebChat configuration failed: StringError(mMsg: \"Cannot "
               "decode WebChatConfigurationDTO: "_s;
        QTest::newRow("a text that is not a string")
            << R"({"params":{"title":7}})"_ba << true
            << u"[ERROR] WebChat: Get WebChat configuration failed: "_s;
        QTest::newRow("no active user")
            << QByteArray() << false << u"[WARNING] ChatView: No visitorId set"_s;
    }
    void openFails()
    {
        QFETCH(QByteArray, configuration);
        QFETCH(bool, user);
        QFETCH(QString, line);
        if (!configuration.isEmpty())
            m_service.setCannedReply(u"GET"_s, u"/api/in/wc/c/tenant-1"_s,
                                     CannedReply{{200, configuration, "application/json"_ba}});
        if (!user)
            m_wrapper.config().activeUserTag.reset();
        m_webChat.open(&m_window, u"tenant-1"_s);
        QTRY_VERIFY_WITH_TIMEOUT(m_log.contains(line), patience);
        QTest::qWait(100);
        QVERIFY(!WebChat::chatViewOf(&m_window));
        // Nothing is left pending: the next open asks again.
        m_webChat.open(&m_window, u"tenant-1"_s);
        QVERIFY(m_service.waitForRequests(u"/api/in/wc/c/tenant-1"_s, 2, patience));
    }

    void errorPage()
    {
        m_service.setCannedReply(
            u"GET"_s, u"/cdn/chat/chat.html"_s,
            CannedReply{{404, "<html><body>Not found</body></html>"_ba, "text/html"_ba}});
        QSignalSpy closed(&m_webChat, &WebChat::closed);
        m_webChat.open(&m_window, u"tenant-1"_s);
        QVERIFY(closed.wait(patience));
        QVERIFY(!WebChat::chatViewOf(&m_window));
        auto *alert = m_window.findChild<QMessageBox *>();
        QVERIFY(alert);
        QVERIFY(alert->isVisible());
        QCOMPARE(alert->windowTitle(), u"Error"_s);
        QCOMPARE(alert->text(), u"An error occurred"_s);
        QCOMPARE(alert->buttons().size(), 1);
        QCOMPARE(alert->buttons().first()->text(), u"Dismiss"_s);
    }

    void tap_data()
    {
        QTest::addColumn<double>("height");
        QTest::addColumn<bool>("closes");
        QTest::newRow("in the top fifth") << 0.19 << true;
        QTest::newRow("below it, the page works as usual") << 0.25 << false;
    }
    void tap()
    {
        QFETCH(double, height);
        QFETCH(bool, closes);
        ChatView *view = waitForChat(true);
        QVERIFY(view);
        QWidget *surface = view->webView()->focusProxy();
        QVERIFY(surface);
        QTest::mouseClick(surface, Qt::LeftButton, {},
                          QPoint(surface->width() / 2, int(m_window.height() * height)));
        if (closes)
            QTRY_VERIFY(!WebChat::chatViewOf(&m_window));
        QTest::qWait(200);
        QCOMPARE(WebChat::chatViewOf(&m_window) == view, !closes);
    }

    void jsError()
    {
        ChatView *view = waitForChat(true);
        QVERIFY(view);
        // The page's WebKit-style handler reaches the kit; page text cannot start a log line.
        evaluate(view->page(),
                 u"window.webkit.messageHandlers.jsError.postMessage('boom\\n[ERROR] x')"_s);
        QTRY_VERIFY(m_log.contains(u"[WARNING] ChatViewController: jsError: boom\\n[ERROR] x"_s));
        QVERIFY(m_log.contains(u"[DEBUG] ChatViewController: did receive message jsError"_s));
    }

    void document_data()
    {
        QTest::addColumn<DocumentKind>("kind");
        QTest::addColumn<QString>("served");
        QTest::addColumn<QString>("stored");
        QTest::addColumn<DocumentPreview::Kind>("preview");
        QTest::addColumn<int>("pages");
        QTest::newRow("PDF") << DocumentKind::Pdf << QString() << u"statement.pdf"_s
                             << DocumentPreview::Kind::Pdf << 2;
        QTest::newRow("image") << DocumentKind::Png << QString() << u"chart.png"_s
                               << DocumentPreview::Kind::Image << 0;
        QTest::newRow("a name that climbs out") << DocumentKind::Pdf << u"../../.profile"_s
                                                << u".profile"_s << DocumentPreview::Kind::Pdf << 2;
    }
    void document()
    {
        QFETCH(DocumentKind, kind);
        QFETCH(QString, served);
        QFETCH(QString, stored);
        QFETCH(DocumentPreview::Kind, preview);
        QFETCH(int, pages);
        ChatView *view = waitForChat(true);
        QVERIFY(view);
        const qint64 id =
            m_service.chat()->sendAgentDocument(u"tenant-1"_s, u"visitor-1"_s, kind, served);
        QVERIFY(id >= 0);
        const QString link = u"document.querySelector('a.document[href$=\"/%1\"]')"_s.arg(id);
        QTRY_VERIFY_WITH_TIMEOUT(evaluate(view->page(), link + u" !== null"_s).toBool(), patience);
        QSignalSpy opened(view->controller(), &ChatViewController::documentOpened);
        // The user follows the link: the chat stays, the document comes through the page.
        evaluate(view->page(), link + u".click()"_s);
        QVERIFY(opened.wait(patience));
        QCOMPARE(WebChat::chatViewOf(&m_window), view);

        const QFileInfo file(opened.first().first().toString());
        QCOMPARE(file.fileName(), stored);
        QCOMPARE(file.absolutePath(),
                 QFileInfo(m_webChat.documents()->directory()).absoluteFilePath());
        const auto others = QFileDevice::ReadGroup | QFileDevice::WriteGroup |
                            QFileDevice::ExeGroup | QFileDevice::ReadOther |
                            QFileDevice::WriteOther | QFileDevice::ExeOther;
        QCOMPARE(QFile::permissions(file.absolutePath()) & others, QFileDevice::Permissions());
        QCOMPARE(file.permissions() & others, QFileDevice::Permissions());

        DocumentPreview *shown = view->controller()->preview();
        QVERIFY(shown);
        QCOMPARE(shown->parentWidget(), &m_window);
        QVERIFY(shown->isVisible());
        QCOMPARE(shown->kind(), preview);
        QCOMPARE(shown->pageCount(), pages);
    }

    void refusedDocument_data()
    {
        QTest::addColumn<QString>("body");
        QTest::addColumn<QString>("line");
        const QString pdf = u";data:application/pdf;base64,JVBERi0xLjQK"_s;
        QTest::newRow("not base64") << u"a.pdf;data:application/pdf;base64,@@"_s
                                    << u"Could not construct data from base64"_s;
        QTest::newRow("no data") << u"a.pdf"_s << u"Could not construct data from base64"_s;
        QTest::newRow("a name of dots") << u".."_s + pdf << u"Refused document name"_s;
        QTest::newRow("no name") << pdf << u"Refused document name"_s;
        QTest::newRow("too large") << u"a.pdf;data:application/pdf;base64,"_s +
                                          QString(DocumentStore::MaxDocumentBytes / 3 * 4 + 8, u'A')
                                   << u"[WARNING] ChatViewController: Document too large"_s;
    }
    void refusedDocument()
    {
        QFETCH(QString, body);
        QFETCH(QString, line);
        DocumentStore store;
        ChatViewController controller(&store);
        QSignalSpy opened(&controller, &ChatViewController::documentOpened);
        controller.postMessage(u"openDocument"_s, body);
        QVERIFY(m_log.contains(line));
        QCOMPARE(opened.size(), 0);
        QVERIFY(store.directory().isEmpty() || QDir(store.directory()).isEmpty());
    }

private:
    ChatView *waitForChat(bool open = false)
    {
        if (open)
            m_webChat.open(&m_window, u"tenant-1"_s);
        if (!QTest::qWaitFor([&] { return WebChat::chatViewOf(&m_window); }, patience))
            return nullptr;
        ChatView *view = WebChat::chatViewOf(&m_window);
        // Loaded, with the kit's script messages in place.
        const auto ready = [view] {
            return evaluate(view->page(), u"document.readyState === 'complete' && "
                                          "typeof window.webkit === 'object'"_s)
                .toBool();
        };
        return QTest::qWaitFor(ready, patience) ? view : nullptr;
    }

    VistrelService::LocalService m_service;
    ApplicationConfigWrapper m_wrapper;
    HttpUtil m_http{&m_wrapper};
    OrvaneAPI m_api{&m_http, TestConfig::serviceHost()};
    WebChat m_webChat{&m_wrapper, &m_api, TestConfig::serviceHost()};
    QWidget m_window;
    LogCapture m_log;
};

QTEST_MAIN(tst_WebChat)
#include "tst_webchat.moc"
