#pragma once

#include "Network/Message/ProtoMessages.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace VistrelService {

/// Decodes a ProtoMessageList from untrusted bytes.
class ReportDecoder
{
public:
    /// Far above what a device sends at once, far below what exhausts memory: a body of tiny
    /// messages would otherwise decode into millions of records.
    static constexpr int MaxReports = 100000;

    enum class Failure { Undecodable, TooManyReports };

    /// The list, or the reason it was refused.
    static std::optional<VistrelKit::ProtoMessageList> decode(const QByteArray &bytes,
                                                              Failure *failure = nullptr);
    static const char *describe(Failure failure);
};

} // namespace VistrelService
