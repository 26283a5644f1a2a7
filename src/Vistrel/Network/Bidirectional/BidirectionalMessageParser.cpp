#include "Network/Bidirectional/BidirectionalMessageParser.h"

#include <cmath>
#include <limits>

namespace VistrelKit {

namespace {
const Json *member(const Json &object, const std::string &key)
{
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

std::optional<bool> boolean(const Json &object, const std::string &key)
{
    const Json *value = member(object, key);
    return value && value->is_boolean() ? std::optional<bool>(value->get<bool>()) : std::nullopt;
}

// Integer value of a JSON number, fractions truncated; nothing when it does not fit 64 bits.
std::optional<qint64> integer(const Json &value)
{
    if (value.is_number_integer() && !value.is_number_unsigned())
        return value.get<qint64>();
    if (value.is_number_unsigned()) {
        const auto number = value.get<quint64>();
        if (number > quint64(std::numeric_limits<qint64>::max()))
            return std::nullopt;
        return qint64(number);
    }
    if (value.is_number_float()) {
        const double number = std::trunc(value.get<double>());
        // 2^63 is exactly representable; anything at or beyond it does not fit.
        if (!(number >= -9223372036854775808.0 && number < 9223372036854775808.0))
            return std::nullopt;
        return qint64(number);
    }
    return std::nullopt;
}

bool isBase64Character(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
           c == '/';
}
} // namespace

BidirectionalMessageParser::BidirectionalMessageParser(QObject *parent)
    : QObject(parent)
{}

void BidirectionalMessageParser::parse(const Json &object)
{
    Q_EMIT messageReceived(read(object));
}

BidirectionalMessage BidirectionalMessageParser::read(const Json &object) const
{
    BidirectionalMessage message;
    if (!object.is_object())
        return message;
    readDrawing(object, message);
    readConfiguration(object, message);
    readAction(object, message);
    readClick(object, message);
    return message;
}

void BidirectionalMessageParser::readDrawing(const Json &object,
                                             BidirectionalMessage &message) const
{
    const Json *drawing = member(object, m_drawing);
    if (!drawing || !drawing->is_object())
        return;
    const Json *url = member(*drawing, m_drawingUrl);
    if (!url || !url->is_string())
        return;
    // Every occurrence of the prefix goes, not only a leading one.
    std::string data = url->get<std::string>();
    for (size_t at = data.find(m_base64Prefix); at != std::string::npos;
         at = data.find(m_base64Prefix, at)) {
        data.erase(at, m_base64Prefix.size());
    }
    message.drawing = decodeStrictBase64(QByteArray(data.data(), qsizetype(data.size())));
}

void BidirectionalMessageParser::readConfiguration(const Json &object,
                                                   BidirectionalMessage &message) const
{
    const Json *configuration = member(object, m_configuration);
    if (!configuration || !configuration->is_object())
        return;
    message.start = boolean(*configuration, m_configurationStart);
    message.bidirectional = boolean(*configuration, m_configurationBidirectional);
    message.optIn = boolean(*configuration, m_configurationOptIn);
}

void BidirectionalMessageParser::readAction(const Json &object, BidirectionalMessage &message) const
{
    const Json *action = member(object, m_action);
    if (action && action->is_string())
        message.stop = action->get_ref<const std::string &>() == m_actionClose;
}

void BidirectionalMessageParser::readClick(const Json &object, BidirectionalMessage &message) const
{
    const Json *x = member(object, m_clickX);
    const Json *y = member(object, m_clickY);
    if (!x || !y)
        return;
    const auto px = integer(*x);
    const auto py = integer(*y);
    if (px && py)
        message.click = BidirectionalMessage::Click{*px, *py};
}

std::optional<QByteArray> BidirectionalMessageParser::decodeStrictBase64(const QByteArray &text)
{
    if (text.size() % 4 != 0)
        return std::nullopt;
    qsizetype padding = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char c = text.at(i);
        if (c == '=') {
            ++padding;
            continue;
        }
        // Padding only at the very end.
        if (padding > 0 || !isBase64Character(c))
            return std::nullopt;
    }
    if (padding > 2)
        return std::nullopt;
    return QByteArray::fromBase64(text);
}

} // namespace VistrelKit
