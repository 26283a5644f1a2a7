#pragma once

#include "Core/Error.h"
#include "Network/Message/ProtoMessages.h"

#include <Vistrel/ActiveUser.h>
#include <Vistrel/vistrel_export.h>

#include <QObject>

#include <functional>

namespace VistrelKit {

class ApplicationConfigWrapper;
class InitSender;
class OrvaneAPI;
class ScreenPlatform;

/// The transport every report goes through. Builds the reports, stamps their time and hands
/// each to the concrete transport's send() once the current screen's name is known.
class VISTREL_AUTOTEST_EXPORT MessageSender : public QObject
{
    Q_OBJECT
public:
    using Callback = std::function<void()>;

    MessageSender(ApplicationConfigWrapper *applicationConfig, InitSender *initSender,
                  OrvaneAPI *orvaneAPI, ScreenPlatform *screen, QObject *parent = nullptr);

    /// Begins transmitting for the screen named url.
    virtual void start(const QString &url, Callback onSuccess, Callback onError) = 0;
    /// Ends the visit on the service.
    virtual void stop();
    /// Transmits one report for the screen named url.
    virtual void send(const QString &url, const ProtoMessage &message,
                      ErrorCompletion completion) = 0;

    void sendPing(qint64 startTime, ErrorCompletion completion);
    void sendScreenshot(const QByteArray &image, qint64 startTime, ErrorCompletion completion);
    void sendClick(qint64 startTime, ErrorCompletion completion, double x, double y);
    void sendPageChange(qint64 startTime, const QString &pageChange, ErrorCompletion completion);
    void sendTag(const QString &tag, qint64 startTime, ErrorCompletion completion);
    void sendUserTag(const ActiveUser &user, qint64 startTime, ErrorCompletion completion);

    /// Report builders: one field of their kind plus the time stamp.
    static ProtoMessage pingReport(qint64 startTime);
    static ProtoMessage screenshotReport(const QByteArray &image, qint64 startTime);
    static ProtoMessage clickReport(double x, double y, qint64 startTime);
    static ProtoMessage pageChangeReport(const QString &pageChange, qint64 startTime);
    static ProtoMessage tagReport(const QString &tag, qint64 startTime);
    static ProtoMessage userTagReport(const ActiveUser &user, qint64 startTime);
    /// Now in whole seconds, times 1000, minus startTime. A start time in the future is a
    /// programming error and stops the process.
    static quint64 reportTime(qint64 startTime);

    qint64 visitSizeThreshold() const { return m_visitSizeThreshold; }
    qint64 byteCount() const { return m_byteCount; }

protected:
    ApplicationConfigWrapper *m_applicationConfig;
    InitSender *m_initSender;
    OrvaneAPI *m_orvaneAPI;
    ScreenPlatform *m_screen;
    /// The screen name given to the last start(), sent with the visit's delete.
    QString m_screenName;

private:
    void dispatch(ProtoMessage report, ErrorCompletion completion);

    // The most the HTTP transport holds while its channel is down.
    const qint64 m_visitSizeThreshold = 7 * 1024 * 1024;
    qint64 m_byteCount = 0;
};

} // namespace VistrelKit
