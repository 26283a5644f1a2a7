#include "Network/MessageSender.h"

#include "Api/OrvaneAPI.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Core/Log.h"
#include "Screen/ScreenPlatform.h"

#include <QDateTime>
#include <QPointer>

#include <memory>

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
std::string utf8(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    return std::string(bytes.constData(), size_t(bytes.size()));
}
} // namespace

MessageSender::MessageSender(ApplicationConfigWrapper *applicationConfig, InitSender *initSender,
                             OrvaneAPI *orvaneAPI, ScreenPlatform *screen, QObject *parent)
    : QObject(parent)
    , m_applicationConfig(applicationConfig)
    , m_initSender(initSender)
    , m_orvaneAPI(orvaneAPI)
    , m_screen(screen)
{}

void MessageSender::stop()
{
    const ApplicationConfig &config = m_applicationConfig->config();
    const VisitConfig &visit = config.visitConfig;
    m_orvaneAPI->closeXhr(
        visit.visitId.value_or(QString()), visit.sessionId.value_or(QString()),
        config.tenantId.value_or(QString()), visit.visitorId.value_or(QString()), m_screenName,
        config.vistrelConfig.storageType.value_or(QString()), [](const Result<VoidReply> &result) {
            if (result.isOk())
                Log::debug(u"Delete sent"_s);
            else
                Log::warning(u"Failed to send delete: "_s + result.error().description());
        });
}

quint64 MessageSender::reportTime(qint64 startTime)
{
    const qint64 time = QDateTime::currentSecsSinceEpoch() * 1000 - startTime;
    if (time < 0)
        qFatal("Report time is negative: the start time %lld lies in the future", startTime);
    return quint64(time);
}

ProtoMessage MessageSender::pingReport(qint64 startTime)
{
    ProtoMessage report;
    report.set_time(reportTime(startTime));
    return report;
}

ProtoMessage MessageSender::screenshotReport(const QByteArray &image, qint64 startTime)
{
    ProtoMessage report;
    report.add_screenshotevent()->set_image(image.constData(), size_t(image.size()));
    report.set_time(reportTime(startTime));
    return report;
}

ProtoMessage MessageSender::clickReport(double x, double y, qint64 startTime)
{
    ProtoMessage report;
    ProtoClickEvent *click = report.add_clickevent();
    click->set_x(float(x));
    click->set_y(float(y));
    report.set_time(reportTime(startTime));
    return report;
}

ProtoMessage MessageSender::pageChangeReport(const QString &pageChange, qint64 startTime)
{
    ProtoMessage report;
    report.set_pagechange(utf8(pageChange));
    report.set_time(reportTime(startTime));
    return report;
}

ProtoMessage MessageSender::tagReport(const QString &tag, qint64 startTime)
{
    ProtoMessage report;
    report.set_tag(utf8(tag));
    report.set_time(reportTime(startTime));
    return report;
}

ProtoMessage MessageSender::userTagReport(const ActiveUser &user, qint64 startTime)
{
    ProtoMessage report;
    ProtoUserTag *tag = report.add_usertag();
    if (user.id)
        tag->set_id(utf8(*user.id));
    if (user.firstname)
        tag->set_firstname(utf8(*user.firstname));
    if (user.lastname)
        tag->set_lastname(utf8(*user.lastname));
    if (user.email)
        tag->set_email(utf8(*user.email));
    if (user.tags) {
        for (const QString &label : *user.tags)
            tag->add_label(utf8(label));
    }
    if (user.assignedUser)
        tag->set_assigneduser(utf8(*user.assignedUser));
    report.set_time(reportTime(startTime));
    return report;
}

void MessageSender::sendPing(qint64 startTime, ErrorCompletion completion)
{
    dispatch(pingReport(startTime), std::move(completion));
}

void MessageSender::sendScreenshot(const QByteArray &image, qint64 startTime,
                                   ErrorCompletion completion)
{
    dispatch(screenshotReport(image, startTime), std::move(completion));
}

void MessageSender::sendClick(qint64 startTime, ErrorCompletion completion, double x, double y)
{
    dispatch(clickReport(x, y, startTime), std::move(completion));
}

void MessageSender::sendPageChange(qint64 startTime, const QString &pageChange,
                                   ErrorCompletion completion)
{
    dispatch(pageChangeReport(pageChange, startTime), std::move(completion));
}

void MessageSender::sendTag(const QString &tag, qint64 startTime, ErrorCompletion completion)
{
    dispatch(tagReport(tag, startTime), std::move(completion));
}

void MessageSender::sendUserTag(const ActiveUser &user, qint64 startTime,
                                ErrorCompletion completion)
{
    dispatch(userTagReport(user, startTime), std::move(completion));
}

void MessageSender::dispatch(ProtoMessage report, ErrorCompletion completion)
{
    // The report goes out later, on the GUI thread, named after the screen shown at that moment.
    auto shared = std::make_shared<ProtoMessage>(std::move(report));
    QPointer<MessageSender> self(this);
    m_screen->withTopWindow(
        [self, shared, completion = std::move(completion)](QWindow *top) mutable {
            if (self)
                self->send(self->m_screen->viewName(top), *shared, std::move(completion));
        });
}

} // namespace VistrelKit
