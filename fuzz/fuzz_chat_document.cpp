// The chat page's "openDocument" script message: "<file name>;data:<type>;base64,<data>", as
// the page posts it over the web channel. The document is decoded, written into the kit's
// private directory and previewed over a window, as for a user who tapped a link in the chat.
#include "FuzzEnvironment.h"

#include "WebChat/ChatViewController.h"
#include "WebChat/DocumentPreview.h"
#include "WebChat/DocumentStore.h"
#include "Widgets/ViewUtils.h"

#include <QApplication>
#include <QDesktopServices>
#include <QDir>
#include <QUrl>
#include <QWidget>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
/// Takes the documents the kit hands to the system's viewer, so that no viewer is launched.
class SystemViewer : public QObject
{
    Q_OBJECT
public Q_SLOTS:
    void open(const QUrl &) {}
};

ChatViewController *controller;
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // A document is written for each input that decodes: a memory file system keeps the disk
    // out of the measurement.
    if (!qEnvironmentVariableIsSet("TMPDIR") && QDir(u"/dev/shm"_s).exists())
        qputenv("TMPDIR", "/dev/shm");
    FuzzEnvironment::silenceLog();
    FuzzEnvironment::application();
    static SystemViewer viewer;
    QDesktopServices::setUrlHandler(u"file"_s, &viewer, "open");
    auto *window = new QWidget;
    window->resize(64, 96);
    window->show();
    // Removed with the process: the documents are gone when the fuzzer exits.
    static DocumentStore documents;
    controller = new ChatViewController(&documents);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    controller->postMessage(
        u"openDocument"_s,
        QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size)));
    // The user closes the preview before the next document.
    if (DocumentPreview *preview = controller->preview())
        ViewUtils::removeFromWindow(preview);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return 0;
}

#include "fuzz_chat_document.moc"
