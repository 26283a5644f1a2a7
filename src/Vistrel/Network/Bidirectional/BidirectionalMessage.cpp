#include "Network/Bidirectional/BidirectionalMessage.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
QString text(const std::optional<bool> &value)
{
    return value ? (*value ? u"true"_s : u"false"_s) : u"nil"_s;
}
} // namespace

QString BidirectionalMessage::toString() const
{
    const QString drawingText = drawing ? u"%1 bytes"_s.arg(drawing->size()) : u"nil"_s;
    const QString clickText =
        click ? u"Click(x: %1, y: %2)"_s.arg(click->x).arg(click->y) : u"nil"_s;
    return u"BidirectionalMessage(drawing: "_s + drawingText + u", start: "_s + text(start) +
           u", bidirectional: "_s + text(bidirectional) + u", stop: "_s + text(stop) +
           u", click: "_s + clickText + u", optIn: "_s + text(optIn) + u')';
}

} // namespace VistrelKit
