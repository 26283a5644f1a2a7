#pragma once

#include "Core/JsonUtils.h"

#include <Vistrel/ActiveUser.h>
#include <Vistrel/vistrel_export.h>

namespace VistrelKit {

/// The JSON form of an ActiveUser: keys in a fixed order, absent values left out.
class VISTREL_AUTOTEST_EXPORT ActiveUserDTO
{
public:
    static Json toJson(const ActiveUser &user);
};

} // namespace VistrelKit
