#pragma once

#include <QSGRendererInterface>

/// How a bench names the scene graph's graphics API in its printout.
inline const char *graphicsApiName(QSGRendererInterface::GraphicsApi api)
{
    switch (api) {
    case QSGRendererInterface::Software:
        return "software";
    case QSGRendererInterface::OpenGL:
        return "OpenGL (RHI)";
    case QSGRendererInterface::Vulkan:
        return "Vulkan (RHI)";
    case QSGRendererInterface::Null:
        return "null (RHI)";
    default:
        return "other";
    }
}
