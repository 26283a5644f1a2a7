#pragma once

#include <Vistrel/vistrel_export.h>

#include <QWidget>

class QLabel;
class QPdfDocument;

namespace VistrelKit {

/// The in-app preview of a document from the chat, over the whole window: a PDF in a page view,
/// an image scaled to fit, with the file name and a Done button on top. Other kinds go to the
/// system's viewer.
class VISTREL_AUTOTEST_EXPORT DocumentPreview : public QWidget
{
    Q_OBJECT
public:
    enum class Kind { Pdf, Image, Other };

    /// What the preview makes of the file, from its content and name.
    static Kind kindOf(const QString &path);
    /// Shows the file over parent (replacing a preview already there); a kind the kit cannot
    /// show opens in the system's viewer instead and nullptr is returned.
    static DocumentPreview *show(const QString &path, QWidget *parent);

    QString path() const { return m_path; }
    Kind kind() const { return m_kind; }
    /// Pages of a PDF (0 for an image or a PDF that cannot be read).
    int pageCount() const;

private:
    DocumentPreview(const QString &path, Kind kind, QWidget *parent);
    bool eventFilter(QObject *watched, QEvent *event) override;
    void close();

    QString m_path;
    Kind m_kind;
    QPdfDocument *m_pdf = nullptr;
};

} // namespace VistrelKit
