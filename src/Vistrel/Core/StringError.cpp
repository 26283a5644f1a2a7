#include "Core/StringError.h"

using namespace Qt::StringLiterals;

namespace VistrelKit {

QString StringError::description() const
{
    return u"StringError(mMsg: \""_s + m_msg + u"\")"_s;
}

} // namespace VistrelKit
