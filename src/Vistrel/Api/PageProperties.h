#pragma once

#include "Core/JsonUtils.h"

namespace VistrelKit {

/// The screen size sent with the init request, in device-independent pixels.
struct PageProperties
{
    int width = 0;
    int height = 0;
    int docHeight = 0;
    int docWidth = 0;

    Json toJson() const
    {
        Json object = Json::object();
        object["width"] = width;
        object["height"] = height;
        object["docHeight"] = docHeight;
        object["docWidth"] = docWidth;
        return object;
    }
};

} // namespace VistrelKit
