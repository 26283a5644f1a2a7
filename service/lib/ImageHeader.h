#pragma once

#include <QByteArray>
#include <QSize>

#include <optional>

namespace VistrelService {

/// Reads the pixel size of untrusted image bytes from their header, without decoding them, so
/// the service needs no image codecs.
class ImageHeader
{
public:
    /// A PNG's size from its signature and IHDR chunk; nothing when the bytes are not a PNG.
    static std::optional<QSize> pngSize(const QByteArray &bytes);
    /// A JPEG's size from its first start-of-frame segment; nothing when there is none.
    static std::optional<QSize> jpegSize(const QByteArray &bytes);
};

} // namespace VistrelService
