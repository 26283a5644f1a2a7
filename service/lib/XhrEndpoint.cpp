#include "XhrEndpoint.h"

#include "ReportDecoder.h"
#include "ServiceLog.h"
#include "VisitRegistry.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace VistrelService {

XhrEndpoint::XhrEndpoint(VisitRegistry *registry)
    : m_registry(registry)
{}

HttpReply XhrEndpoint::handle(const RecordedRequest &request)
{
    const QString visitId = request.queryValue(u"id"_s);
    if (request.method == u"DELETE"_s)
        return end(visitId);
    if (request.method != u"GET"_s && request.method != u"POST"_s)
        return HttpReply::error(405, "method not allowed");
    if (visitId.isEmpty()) {
        qCWarning(lcVistrelService) << request.method << request.path << "without a visit id";
        return HttpReply::error(400, "missing id");
    }
    return request.method == u"GET"_s ? open(request, visitId) : post(request, visitId);
}

HttpReply XhrEndpoint::open(const RecordedRequest &request, const QString &visitId)
{
    m_registry->open(visitId, Transport::Xhr, request.query);
    return HttpReply{200, {}};
}

HttpReply XhrEndpoint::post(const RecordedRequest &request, const QString &visitId)
{
    const Visit *visit = m_registry->find(visitId);
    // The device always opens the channel with a GET first; anything else is not ours.
    if (!visit || visit->state() == Visit::State::Pending) {
        qCWarning(lcVistrelService) << "Reports for unknown visit" << visitId;
        return HttpReply::error(404, "unknown visit");
    }

    ReportDecoder::Failure failure{};
    const auto list = ReportDecoder::decode(request.body, &failure);
    if (!list) {
        qCWarning(lcVistrelService)
            << "Refused a ProtoMessageList of" << request.body.size() << "bytes for visit"
            << visitId << "as" << ReportDecoder::describe(failure);
        return HttpReply::error(failure == ReportDecoder::Failure::TooManyReports ? 413 : 400,
                                ReportDecoder::describe(failure));
    }
    m_registry->addReports(visitId, *list,
                           Report::stamp(visitId, Transport::Xhr, request.query, request.time));

    // The device still flushes once after deleting its visit; commands wait for a reopening.
    QJsonArray elements;
    if (visit->isOpen()) {
        for (const AgentCommand &command : m_registry->takeCommands(visitId, Transport::Xhr))
            elements.append(QString::fromUtf8(command.xhrElement()));
    }
    return HttpReply{200, QJsonDocument(elements).toJson(QJsonDocument::Compact)};
}

HttpReply XhrEndpoint::end(const QString &visitId)
{
    // The device ignores this reply, and a device without a visit still deletes: always 200.
    if (!m_registry->end(visitId))
        qCWarning(lcVistrelService) << "Delete of unknown visit" << visitId;
    return HttpReply{200, {}};
}

} // namespace VistrelService
