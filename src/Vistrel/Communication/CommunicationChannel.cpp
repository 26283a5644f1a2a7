#include "Communication/CommunicationChannel.h"

#include <array>

using namespace Qt::StringLiterals;

namespace VistrelKit {

namespace {
// In declaration order, so the enum's value indexes its name.
constexpr std::array Names = {u"CF", u"C",  u"V",    u"VCB", u"SCB", u"S",
                              u"WC", u"CO", u"COQS", u"NO",  u"JS"};
} // namespace

QString toString(CommunicationChannel channel)
{
    return QString::fromUtf16(Names.at(std::size_t(channel)));
}

std::optional<CommunicationChannel> communicationChannelFromString(const QString &name)
{
    for (std::size_t i = 0; i < Names.size(); ++i) {
        if (name == QStringView(Names[i]))
            return CommunicationChannel(i);
    }
    return std::nullopt;
}

} // namespace VistrelKit
