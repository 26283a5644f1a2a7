#pragma once

#include <Vistrel/vistrelconference_export.h>

#include <QUrl>
#include <QWebEnginePage>
#include <QWidget>

#include <optional>

class QWebEngineView;

namespace VistrelKit {

class ConferenceBridge;

/// The call over the whole of a host window: the meeting web app in a web view, created through
/// its iframe API from a page whose origin is the meeting server. Camera and microphone are
/// granted to that origin only.
class VISTREL_CONFERENCE_EXPORT ConferenceView : public QWidget
{
    Q_OBJECT
public:
    /// What the meeting is created with.
    struct Options
    {
        /// "https://" + domain + "/".
        QUrl serverUrl;
        QString room;
        std::optional<QString> token;
        std::optional<QString> displayName;
        std::optional<QString> email;
        std::optional<QString> subject;
    };

    ConferenceView(QWidget *parent, const Options &options);

    /// The page that loads the server's external_api.js and creates the meeting.
    static QString hostPage(const Options &options);
    /// Whether origin may have feature while the meeting runs on serverUrl: camera and
    /// microphone for the meeting's own origin, nothing else for anyone.
    static bool grants(const QUrl &origin, QWebEnginePage::Feature feature, const QUrl &serverUrl);

    const Options &options() const { return m_options; }
    QWebEngineView *webView() const { return m_webView; }

Q_SIGNALS:
    /// The meeting ended (or could not start): the call is over.
    void terminated();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    Options m_options;
    QWebEngineView *m_webView;
    ConferenceBridge *m_bridge;
};

} // namespace VistrelKit
