#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

/// The kit as the QML pages see it: the session's state and share id, the chat and the video
/// call, kept up to date from the kit's signals, and the actions of the session panel and the
/// pages. One instance, made by the QML engine.
class DemoSession : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(State state READ state NOTIFY stateChanged)
    /// Whether the screen is being recorded (also while the service is unreachable).
    Q_PROPERTY(bool connected READ isConnected NOTIFY stateChanged)
    Q_PROPERTY(QString startError READ startError NOTIFY stateChanged)
    Q_PROPERTY(QString shareId READ shareId NOTIFY stateChanged)
    Q_PROPERTY(bool canStart READ canStart NOTIFY stateChanged)
    Q_PROPERTY(bool canStartCoBrowsing READ canStartCoBrowsing NOTIFY stateChanged)
    Q_PROPERTY(bool chatOpen READ isChatOpen NOTIFY stateChanged)
    Q_PROPERTY(CallState callState READ callState NOTIFY callStateChanged)
    Q_PROPERTY(int queuePosition READ queuePosition NOTIFY callStateChanged)
    Q_PROPERTY(bool canJoinCall READ canJoinCall NOTIFY callStateChanged)
    Q_PROPERTY(int passwordTag READ passwordTag CONSTANT)

public:
    /// The demo's tenant, given to initConfig; also its chat id.
    static constexpr const char *TenantId = "demo-tenant";
    /// The tag the password field carries; the service lists it among its private tags.
    static constexpr int PasswordTag = 7;
    /// The class name the service lists among its private classes, as for the widgets demo. The
    /// QML type CardNumberEdit has that name, but its objects' class is
    /// "CardNumberEdit_QMLTYPE_<n>", so the field does not rely on it: its vistrelPrivate property
    /// keeps it private.
    static constexpr const char *CardNumberClass = "CardNumberEdit";

    enum class State {
        NotConnected,
        Connected,
        CoBrowsing,
        /// Recording, but the service does not answer: the kit retries.
        Unreachable,
        /// The last start failed (startError says why) and nothing changed since.
        StartFailed,
    };
    Q_ENUM(State)

    enum class CallState {
        Idle,
        Joining,
        /// In the agents' queue at queuePosition.
        Queued,
        /// The agent started the call: it is opening.
        Calling,
        InCall,
        Ended,
        NotQueued,
    };
    Q_ENUM(CallState)

    explicit DemoSession(QObject *parent = nullptr);

    State state() const { return m_state; }
    QString startError() const { return m_startError; }
    bool isConnected() const;
    QString shareId() const;
    bool canStart() const;
    bool canStartCoBrowsing() const;
    bool isChatOpen() const;
    CallState callState() const { return m_callState; }
    int queuePosition() const { return m_queuePosition; }
    bool canJoinCall() const;
    int passwordTag() const { return PasswordTag; }

    Q_INVOKABLE void start();
    Q_INVOKABLE void stop();
    Q_INVOKABLE void coBrowse();
    Q_INVOKABLE void stopCoBrowsing();
    Q_INVOKABLE void chat();
    Q_INVOKABLE void videoCall();
    /// Tells the service who signed in. The kit then restarts the screen session as a new visit
    /// under the user's id, so the agent sees a named customer from here on.
    Q_INVOKABLE void signIn();
    /// Attaches a free text tag to the session for the agent; blank text is ignored.
    Q_INVOKABLE void tag(const QString &text);

Q_SIGNALS:
    void stateChanged();
    void callStateChanged();

private:
    void refresh();
    void setCallState(CallState state, int position = -1);
    void showQueuePosition(const QString &customerId, int position);

    State m_state = State::NotConnected;
    QString m_startError;
    bool m_connectionLost = false;
    CallState m_callState = CallState::Idle;
    int m_queuePosition = -1;
    /// Between the user's join and the call's start: position 0 then opens the call, once.
    bool m_waitingForCall = false;
};
