#include "AgentDocument.h"

#include <QBuffer>
#include <QGuiApplication>
#include <QImage>
#include <QPageSize>
#include <QPainter>
#include <QPdfWriter>

#include <array>

using namespace Qt::StringLiterals;

namespace VistrelService {

namespace {
QByteArray statementPdf()
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    QPdfWriter writer(&buffer);
    writer.setPageSize(QPageSize(QPageSize::A4));
    writer.setResolution(72);
    writer.setTitle(u"Account statement"_s);
    writer.setCreator(u"Vistrel local service"_s);
    QPainter painter(&writer);
    QFont heading = painter.font();
    heading.setPointSize(20);
    heading.setBold(true);
    QFont body = heading;
    body.setPointSize(11);
    body.setBold(false);

    painter.setFont(heading);
    painter.drawText(60, 80, u"Account statement"_s);
    painter.setFont(body);
    const std::array lines = {u"Account holder: Alex Morgan"_s, u"Account: DE00 1234 5678 9012"_s,
                              u"Opening balance: 1,250.00 EUR"_s, u"Card payments: -310.45 EUR"_s,
                              u"Closing balance: 939.55 EUR"_s};
    int y = 120;
    for (const QString &line : lines) {
        painter.drawText(60, y, line);
        y += 22;
    }
    writer.newPage();
    painter.setFont(heading);
    painter.drawText(60, 80, u"Notes"_s);
    painter.setFont(body);
    painter.drawText(60, 120, u"Page 2 of 2. Questions? Ask your agent in the chat."_s);
    painter.end();
    return buffer.data();
}

QByteArray chartPng()
{
    QImage image(320, 200, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QColor(0x1d, 0x23, 0x2b));
    painter.drawText(QRect(0, 8, 320, 24), Qt::AlignCenter, u"Monthly spending"_s);
    const std::array values = {40, 95, 70, 130, 110, 150};
    for (int i = 0; i < int(values.size()); ++i)
        painter.fillRect(30 + i * 46, 180 - values[i], 30, values[i], QColor(0x1e, 0x6f, 0xd9));
    painter.drawLine(20, 180, 300, 180);
    painter.end();
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return buffer.data();
}
} // namespace

QString AgentDocument::defaultFileName(Kind kind)
{
    return kind == Kind::Pdf ? u"statement.pdf"_s : u"chart.png"_s;
}

AgentDocument AgentDocument::make(Kind kind, const QString &fileName)
{
    AgentDocument document;
    document.fileName = fileName.isEmpty() ? defaultFileName(kind) : fileName;
    document.contentType = kind == Kind::Pdf ? "application/pdf" : "image/png";
    if (qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        document.bytes = kind == Kind::Pdf ? statementPdf() : chartPng();
    return document;
}

} // namespace VistrelService
