#pragma once

#include <Vistrel/vistrel_export.h>

#include <QWidget>

namespace VistrelKit {

/// An overlay that takes no input on its own area: mouse events outside its visible children go
/// to the widgets beneath, while its children (buttons, panels) work as usual.
class VISTREL_AUTOTEST_EXPORT PassthroughUIView : public QWidget
{
    Q_OBJECT
public:
    explicit PassthroughUIView(QWidget *parent = nullptr);

protected:
    bool event(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    /// The widget's shape becomes the region of its visible children.
    void updateShape();
};

} // namespace VistrelKit
