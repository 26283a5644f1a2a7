#include "WebChat/ChatView.h"

#include "Config/ServiceHost.h"
#include "Core/Log.h"
#include "WebChat/ChatPage.h"
#include "WebChat/ChatViewController.h"
#include "WebChat/WebChannelScript.h"
#include "Widgets/ViewUtils.h"

#include <QApplication>
#include <QDateTime>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPushButton>
#include <QTouchEvent>
#include <QVBoxLayout>
#include <QWebChannel>
#include <QWebEngineLoadingInfo>
#include <QWebEngineProfile>
#include <QWebEngineScript>
#include <QWebEngineScriptCollection>
#include <QWebEngineView>

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
// The object name the page's window.webkit shim talks to over the web channel.
constexpr auto BridgeObject = "vistrelScriptMessages";

// Defines window.webkit.messageHandlers.<name>.postMessage(body) over Qt's web channel, so a
// page written for a WebKit view runs unchanged. Messages posted before the channel is up are
// kept and delivered in order once it is.
QString shimSource()
{
    QString names;
    for (const QString &name : ChatViewController::messageNames())
        names += (names.isEmpty() ? u"'"_s : u", '"_s) + name + u'\'';
    return WebChannelScript::source() + uR"JS(
(function () {
    'use strict';
    var queue = [];
    var target = null;
    var handlers = {};
    [%1].forEach(function (name) {
        handlers[name] = Object.freeze({
            postMessage: function (body) {
                var text = typeof body === 'string' ? body : JSON.stringify(body);
                if (target)
                    target.postMessage(name, String(text));
                else
                    queue.push([name, String(text)]);
            }
        });
    });
    window.webkit = Object.freeze({ messageHandlers: Object.freeze(handlers) });
    new QWebChannel(qt.webChannelTransport, function (channel) {
        target = channel.objects.%2;
        queue.forEach(function (message) { target.postMessage(message[0], message[1]); });
        queue = [];
    });
})();
)JS"_s.arg(names, QLatin1StringView(BridgeObject));
}
} // namespace

ChatView::ChatView(QWidget *parent, const std::optional<WebChatConfigurationDTO> &config,
                   const std::optional<QString> &tenantId, const std::optional<QString> &visitorId,
                   ServiceHost *serviceHost, DocumentStore *documents)
    : QWidget(parent)
    , m_parent(parent)
    , m_config(config)
    , m_tenantId(tenantId)
    , m_visitorId(visitorId)
    , m_serviceHost(serviceHost)
    , m_controller(new ChatViewController(documents, this))
{
    m_loadTimeout.setSingleShot(true);
    m_loadTimeout.setInterval(LoadTimeoutMs);
    connect(&m_loadTimeout, &QTimer::timeout, this, [this] {
        Log::warning(u"The chat page did not load within %1 s"_s.arg(LoadTimeoutMs / 1000));
        showErrorAndRemove();
    });
}

QString ChatView::queryEncoded(const std::optional<QString> &text)
{
    if (!text)
        return {};
    // The characters a URL query allows besides the unreserved ones.
    static const QByteArray queryAllowed = QByteArrayLiteral("!$&'()*+,;=:@/?");
    return QString::fromLatin1(QUrl::toPercentEncoding(*text, queryAllowed));
}

QString ChatView::chatUrl(const QString &cdnPath, const QString &server, qint64 seconds,
                          const QString &tenantId, const QString &visitorId,
                          const std::optional<GrowthActionParams> &params)
{
    const GrowthActionParams texts = params.value_or(GrowthActionParams{});
    return u"%1/chat/chat.html?%2#d=%3&tId=%4&vId=%5&title=%6&message=%7&hint=%8&color=%9"
           "&n=true&eU=true"_s.arg(cdnPath, QString::number(seconds), server, tenantId, visitorId,
                                   queryEncoded(texts.title), queryEncoded(texts.message),
                                   queryEncoded(texts.hint), queryEncoded(texts.color));
}

QString ChatView::downloadScript(const QUrl &url)
{
    // The URL goes into a quoted script literal: nothing in it may end the literal.
    QString literal = url.toString(QUrl::FullyEncoded);
    literal.replace(u'\\', u"%5C"_s).replace(u'\'', u"%27"_s);
    return u"    (async function download() {\n        const url = '"_s + literal + uR"JS(';
        try {
            let res;
            try {
                res = await fetch(url, { credentials: 'include' });
            } catch (err) {
                window.webkit.messageHandlers.jsError.postMessage(`fetch threw, error: ${err}, url: ${url}`);
                return;
            }
            if (!res.ok) {
                window.webkit.messageHandlers.jsError.postMessage(`Response status was not ok, status: ${res.status}, url: ${url}`);
                return;
            }
            const contentDisp = res.headers.get('content-disposition');
            if (!contentDisp) {
                window.webkit.messageHandlers.jsError.postMessage(`content-disposition header missing, url: ${url}`);
                return;
            }
            const match = contentDisp.match(/(^;|)\s*filename=\s*("([^"]*)"|([^;\s]*))\s*(;|$)/i);
            if (match) {
                filename = match[3] || match[4];
            } else {
                window.webkit.messageHandlers.jsError.postMessage(`content-disposition header could not be matched against regex, content-disposition: ${contentDisp} url: ${url}`);
            }
            if (!filename) {
                const contentType = res.headers.get('content-type');
                if (contentType && contentType.startsWith('application/json')) {
                    filename = 'unnamed.pdf';
                } else if (contentType && contentType.startsWith('image/tiff')) {
                    filename = 'unnamed.tiff';
                }
            }
            if (!filename) {
                window.webkit.messageHandlers.jsError.postMessage(`Could not determine filename from content-disposition nor content-type, content-dispositon: ${contentDispositon}, content-type: ${contenType}, url: ${url}`);
                return;
            }
            let blob;
            try {
                blob = await res.blob();
            } catch (err) {
                window.webkit.messageHandlers.jsError.postMessage(`res.blob() threw, error: ${err}, url: ${url}`);
                return;
            }
            const fr = new FileReader();
            fr.onload = () => {
                window.webkit.messageHandlers.openDocument.postMessage(`${filename};${fr.result}`);
            };
            fr.onerror = (err) => {
                window.webkit.messageHandlers.jsError.postMessage(`FileReader threw, error: ${err}`);
            };
            fr.readAsDataURL(blob);
        } catch (err) {
            window.webkit.messageHandlers.jsError.postMessage(`JSError while downloading document, url: ${url}, err: ${err}`);
        }
    })();
    null;
)JS"_s;
}

bool ChatView::isFailure(const QWebEngineLoadingInfo &info)
{
    if (info.errorDomain() == QWebEngineLoadingInfo::HttpStatusCodeDomain)
        return info.errorCode() >= 400;
    if (info.status() != QWebEngineLoadingInfo::LoadFailedStatus)
        return false;
    switch (info.errorCode()) {
    case ErrTimedOut:
    case ErrConnectionTimedOut:
    case ErrNameNotResolved:
    case ErrFileNotFound:
        return true;
    default:
        return false;
    }
}

bool ChatView::setup()
{
    if (!m_visitorId) {
        Log::warning(u"No visitorId set"_s);
        return false;
    }
    m_url = chatUrl(m_serviceHost->cdnPath(), m_serviceHost->server(),
                    QDateTime::currentSecsSinceEpoch(), m_tenantId.value_or(QString()),
                    *m_visitorId, m_config ? m_config->params : std::nullopt);
    const QUrl url(m_url, QUrl::StrictMode);
    if (!url.isValid()) {
        Log::warning(u"Cannot construct URL"_s);
        return false;
    }
    if (url.scheme().isEmpty() || url.host().isEmpty()) {
        Log::warning(u"Cannot parse URL"_s);
        return false;
    }

    m_page = new ChatPage(this);
    installScriptMessages();
    connect(m_page, &ChatPage::downloadRequested, this, &ChatView::download);
    connect(m_page, &QWebEnginePage::loadingChanged, this, &ChatView::onLoadingChanged);
    m_webView = new QWebEngineView(this);
    m_webView->setPage(m_page);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_webView);

    // Taps are seen, never taken: the page gets them too.
    qApp->installEventFilter(this);
    if (m_parent)
        m_parent->installEventFilter(this);
    m_loadTimeout.start();
    m_webView->load(url);
    return true;
}

void ChatView::installScriptMessages()
{
    auto *channel = new QWebChannel(m_page);
    channel->registerObject(QString::fromLatin1(BridgeObject), m_controller);
    m_page->setWebChannel(channel, QWebEngineScript::MainWorld);
    QWebEngineScript shim;
    shim.setName(u"vistrel-script-messages"_s);
    shim.setSourceCode(shimSource());
    shim.setInjectionPoint(QWebEngineScript::DocumentCreation);
    shim.setWorldId(QWebEngineScript::MainWorld);
    shim.setRunsOnSubFrames(false);
    m_page->scripts().insert(shim);
}

void ChatView::onLoadingChanged(const QWebEngineLoadingInfo &info)
{
    if (info.status() == QWebEngineLoadingInfo::LoadStartedStatus)
        return;
    m_loadTimeout.stop();
    if (isFailure(info)) {
        Log::warning(u"Chat page failed: %1 (%2)"_s.arg(info.errorCode()).arg(info.errorString()));
        showErrorAndRemove();
    }
}

void ChatView::download(const QUrl &url)
{
    if (m_page)
        m_page->runJavaScript(downloadScript(url));
}

void ChatView::showErrorAndRemove()
{
    if (m_removed)
        return;
    QWidget *top = ViewUtils::topViewController();
    auto *alert = new QMessageBox(QMessageBox::NoIcon, u"Error"_s, u"An error occurred"_s,
                                  QMessageBox::NoButton, top);
    alert->addButton(u"Dismiss"_s, QMessageBox::AcceptRole);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->open();
    remove();
}

bool ChatView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_parent && event->type() == QEvent::Resize) {
        setGeometry(m_parent->rect());
        return false;
    }
    const bool release = event->type() == QEvent::MouseButtonRelease;
    const bool touchEnd = event->type() == QEvent::TouchEnd;
    if ((!release && !touchEnd) || !m_webView || !m_parent || !watched->isWidgetType())
        return false;
    auto *widget = static_cast<QWidget *>(watched);
    if (widget != m_webView && !m_webView->isAncestorOf(widget))
        return false;
    const auto *pointer = static_cast<QPointerEvent *>(event);
    if (pointer->points().isEmpty())
        return false;
    const QPointF global = pointer->points().first().globalPosition();
    const qreal y = m_webView->mapFromGlobal(global).y();
    if (y <= 0.2 * m_parent->height())
        QMetaObject::invokeMethod(this, &ChatView::remove, Qt::QueuedConnection);
    return false;
}

void ChatView::remove()
{
    if (m_removed)
        return;
    m_removed = true;
    m_loadTimeout.stop();
    qApp->removeEventFilter(this);
    ViewUtils::removeFromWindow(this);
}

} // namespace VistrelKit
