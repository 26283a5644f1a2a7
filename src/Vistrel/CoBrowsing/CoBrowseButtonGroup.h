#pragma once

#include <Vistrel/vistrel_export.h>

#include <QWidget>

namespace VistrelKit {

/// The row of the panel's buttons; its bottom-left corner is rounded (15 px).
class VISTREL_AUTOTEST_EXPORT CoBrowseButtonGroup : public QWidget
{
    Q_OBJECT
public:
    explicit CoBrowseButtonGroup(QWidget *parent = nullptr);

    /// Lays a dark backdrop under all the group's children, 5 px wider than the group, and
    /// keeps it sized with the group.
    void insertBackdrop();
    QWidget *backdrop() const { return m_backdrop; }

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void fitBackdrop();

    QWidget *m_backdrop = nullptr;
};

} // namespace VistrelKit
