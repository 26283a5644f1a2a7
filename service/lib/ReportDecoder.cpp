#include "ReportDecoder.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <climits>

namespace VistrelService {

namespace {
// Counts the list's messages without building them.
std::optional<int> countMessages(const QByteArray &bytes)
{
    using google::protobuf::internal::WireFormatLite;
    google::protobuf::io::CodedInputStream input(
        reinterpret_cast<const uint8_t *>(bytes.constData()), int(bytes.size()));
    int count = 0;
    while (const uint32_t tag = input.ReadTag()) {
        if (WireFormatLite::GetTagFieldNumber(tag) == 1 && ++count > ReportDecoder::MaxReports)
            return count;
        if (!WireFormatLite::SkipField(&input, tag))
            return std::nullopt;
    }
    if (!input.ConsumedEntireMessage())
        return std::nullopt;
    return count;
}
} // namespace

std::optional<VistrelKit::ProtoMessageList> ReportDecoder::decode(const QByteArray &bytes,
                                                                  Failure *failure)
{
    const auto fail = [failure](Failure reason) {
        if (failure)
            *failure = reason;
        return std::nullopt;
    };
    // Protobuf reads at most INT_MAX bytes at once.
    if (bytes.size() > INT_MAX)
        return fail(Failure::TooManyReports);
    const std::optional<int> count = countMessages(bytes);
    if (!count)
        return fail(Failure::Undecodable);
    if (*count > MaxReports)
        return fail(Failure::TooManyReports);
    VistrelKit::ProtoMessageList list;
    if (!list.ParseFromArray(bytes.constData(), int(bytes.size())))
        return fail(Failure::Undecodable);
    return list;
}

const char *ReportDecoder::describe(Failure failure)
{
    return failure == Failure::TooManyReports ? "too many reports" : "undecodable ProtoMessageList";
}

} // namespace VistrelService
