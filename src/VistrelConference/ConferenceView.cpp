#include "ConferenceView.h"

#include "ConferenceBridge.h"
#include "Core/JsonUtils.h"
#include "Core/Log.h"
#include "WebChat/WebChannelScript.h"

#include <QEvent>
#include <QVBoxLayout>
#include <QWebChannel>
#include <QWebEngineView>

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
// A JSON text that is safe inside an inline script: neither "</script>" nor "<!--" (after which
// the browser reads "<script" and "</script>" differently) can come from it. In JSON text "<" only
// occurs inside strings, where the escape means the same.
QString scriptJson(const Json &value)
{
    return JsonUtils::dumpText(value).replace(u'<', u"\\u003c"_s);
}
} // namespace

ConferenceView::ConferenceView(QWidget *parent, const Options &options)
    : QWidget(parent)
    , m_options(options)
    , m_webView(new QWebEngineView(this))
    , m_bridge(new ConferenceBridge(this))
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_webView);
    QWebEnginePage *page = m_webView->page();
    const QUrl server = options.serverUrl;
    connect(page, &QWebEnginePage::featurePermissionRequested, this,
            [page, server](const QUrl &origin, QWebEnginePage::Feature feature) {
                page->setFeaturePermission(origin, feature,
                                           grants(origin, feature, server)
                                               ? QWebEnginePage::PermissionGrantedByUser
                                               : QWebEnginePage::PermissionDeniedByUser);
            });
    auto *channel = new QWebChannel(page);
    channel->registerObject(u"vistrelConference"_s, m_bridge);
    page->setWebChannel(channel);
    connect(m_bridge, &ConferenceBridge::terminated, this, &ConferenceView::terminated);
    connect(m_bridge, &ConferenceBridge::failed, this, [this](const QString &error) {
        Log::warning(u"Cannot open the call: "_s + error.left(500));
        Q_EMIT terminated();
    });
    if (parent)
        parent->installEventFilter(this);
    // The page's origin is the meeting server, so the meeting's frame is same-origin with it.
    m_webView->setHtml(hostPage(options), options.serverUrl);
}

QString ConferenceView::hostPage(const Options &options)
{
    Json meeting = Json::object();
    meeting["roomName"] = JsonUtils::fromQString(options.room);
    meeting["width"] = "100%";
    meeting["height"] = "100%";
    if (options.token)
        meeting["jwt"] = JsonUtils::fromQString(*options.token);
    Json user = Json::object();
    if (options.displayName)
        user["displayName"] = JsonUtils::fromQString(*options.displayName);
    if (options.email)
        user["email"] = JsonUtils::fromQString(*options.email);
    meeting["userInfo"] = user;
    if (options.subject)
        meeting["configOverwrite"] = Json{{"subject", JsonUtils::fromQString(*options.subject)}};
    const QString domain = options.serverUrl.authority(QUrl::FullyEncoded);
    return uR"HTML(<!DOCTYPE html>
<html><head><meta charset="utf-8">
<style>html, body, #meeting { margin: 0; width: 100%; height: 100%; overflow: hidden; background: #000; }</style>
<script>%1</script>
<script src="external_api.js"></script>
</head><body><div id="meeting"></div>
<script>
new QWebChannel(qt.webChannelTransport, function (channel) {
    var bridge = channel.objects.vistrelConference;
    try {
        var options = %2;
        options.parentNode = document.getElementById('meeting');
        var api = new JitsiMeetExternalAPI(%3, options);
        var ended = false;
        var end = function () {
            if (ended)
                return;
            ended = true;
            bridge.conferenceTerminated();
        };
        api.addListener('readyToClose', end);
        api.addListener('videoConferenceLeft', end);
        window.vistrelMeeting = api;
    } catch (error) {
        bridge.conferenceFailed(String(error));
    }
});
</script></body></html>
)HTML"_s.arg(WebChannelScript::source().replace(u"</"_s, u"<\\/"_s), scriptJson(meeting),
             scriptJson(JsonUtils::fromQString(domain)));
}

bool ConferenceView::grants(const QUrl &origin, QWebEnginePage::Feature feature,
                            const QUrl &serverUrl)
{
    const bool media = feature == QWebEnginePage::MediaAudioCapture ||
                       feature == QWebEnginePage::MediaVideoCapture ||
                       feature == QWebEnginePage::MediaAudioVideoCapture;
    return media && origin.scheme() == serverUrl.scheme() && origin.host() == serverUrl.host() &&
           origin.port(443) == serverUrl.port(443);
}

bool ConferenceView::eventFilter(QObject *watched, QEvent *event)
{
    // Full screen over its window, through rotations and resizes.
    if (watched == parentWidget() && event->type() == QEvent::Resize)
        setGeometry(parentWidget()->rect());
    return QWidget::eventFilter(watched, event);
}

} // namespace VistrelKit
