#pragma once

#include <Vistrel/vistrel_export.h>

#include <QPushButton>

namespace VistrelKit {

/// A dark flat button whose left side is fully rounded (radius 50 px, clamped to its height).
class VISTREL_AUTOTEST_EXPORT RoundedButton : public QPushButton
{
    Q_OBJECT
public:
    explicit RoundedButton(QWidget *parent = nullptr);

protected:
    void resizeEvent(QResizeEvent *event) override;
};

} // namespace VistrelKit
