#include "ImageHeader.h"

namespace VistrelService {

namespace {
quint32 bigEndian(const QByteArray &bytes, qsizetype at, int length)
{
    quint32 value = 0;
    for (int i = 0; i < length; ++i)
        value = (value << 8) | quint8(bytes.at(at + i));
    return value;
}
} // namespace

std::optional<QSize> ImageHeader::pngSize(const QByteArray &bytes)
{
    // Signature, then the IHDR chunk: length 13, type, width, height.
    static const QByteArray signature = QByteArrayLiteral("\x89PNG\r\n\x1a\n");
    if (bytes.size() < 24 || !bytes.startsWith(signature) || bytes.mid(12, 4) != "IHDR")
        return std::nullopt;
    const quint32 width = bigEndian(bytes, 16, 4);
    const quint32 height = bigEndian(bytes, 20, 4);
    // The format allows up to 2^31 - 1; zero is invalid.
    if (width == 0 || height == 0 || width > 0x7fffffff || height > 0x7fffffff)
        return std::nullopt;
    return QSize(int(width), int(height));
}

std::optional<QSize> ImageHeader::jpegSize(const QByteArray &bytes)
{
    if (bytes.size() < 4 || quint8(bytes.at(0)) != 0xff || quint8(bytes.at(1)) != 0xd8)
        return std::nullopt;
    qsizetype at = 2;
    while (at + 4 <= bytes.size()) {
        if (quint8(bytes.at(at)) != 0xff)
            return std::nullopt;
        const quint8 marker = quint8(bytes.at(at + 1));
        if (marker == 0xff) {
            // Fill byte before a marker.
            ++at;
            continue;
        }
        // Markers without a length: TEM, RSTn; SOS starts entropy-coded data before any frame.
        if (marker == 0x01 || (marker >= 0xd0 && marker <= 0xd7)) {
            at += 2;
            continue;
        }
        if (marker == 0xd9 || marker == 0xda)
            return std::nullopt;
        const quint32 length = bigEndian(bytes, at + 2, 2);
        if (length < 2)
            return std::nullopt;
        // Start of frame: every 0xCn except DHT (C4), JPG (C8) and DAC (CC).
        const bool frame =
            marker >= 0xc0 && marker <= 0xcf && marker != 0xc4 && marker != 0xc8 && marker != 0xcc;
        if (frame) {
            // Length, precision, height, width.
            if (length < 7 || at + 9 > bytes.size())
                return std::nullopt;
            const quint32 height = bigEndian(bytes, at + 5, 2);
            const quint32 width = bigEndian(bytes, at + 7, 2);
            if (width == 0 || height == 0)
                return std::nullopt;
            return QSize(int(width), int(height));
        }
        at += 2 + qsizetype(length);
    }
    return std::nullopt;
}

} // namespace VistrelService
