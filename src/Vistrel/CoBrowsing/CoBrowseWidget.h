#pragma once

#include <Vistrel/vistrel_export.h>

#include <QFrame>

namespace VistrelKit {

/// The co-browse panel: its left corners are rounded (5 px), it sits on the right edge.
class VISTREL_AUTOTEST_EXPORT CoBrowseWidget : public QFrame
{
    Q_OBJECT
public:
    explicit CoBrowseWidget(QWidget *parent = nullptr);

protected:
    void resizeEvent(QResizeEvent *event) override;
};

} // namespace VistrelKit
