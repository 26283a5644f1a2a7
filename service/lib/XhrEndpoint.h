#pragma once

#include "HttpReply.h"
#include "RecordedRequest.h"

namespace VistrelService {

class VisitRegistry;

/// The visit's message channel over HTTP, "api/ix/m": GET opens it, POST carries a
/// ProtoMessageList up and the queued agent commands down, DELETE ends the visit.
class XhrEndpoint
{
public:
    static constexpr QStringView Path = u"/api/ix/m";

    explicit XhrEndpoint(VisitRegistry *registry);

    HttpReply handle(const RecordedRequest &request);

private:
    HttpReply open(const RecordedRequest &request, const QString &visitId);
    HttpReply post(const RecordedRequest &request, const QString &visitId);
    HttpReply end(const QString &visitId);

    VisitRegistry *m_registry;
};

} // namespace VistrelService
