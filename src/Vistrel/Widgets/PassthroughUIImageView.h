#pragma once

#include <Vistrel/vistrel_export.h>

#include <QLabel>

namespace VistrelKit {

/// An image laid over the app that every mouse event goes through.
class VISTREL_AUTOTEST_EXPORT PassthroughUIImageView : public QLabel
{
    Q_OBJECT
public:
    explicit PassthroughUIImageView(QWidget *parent = nullptr);
    explicit PassthroughUIImageView(const QImage &image, QWidget *parent = nullptr);
};

} // namespace VistrelKit
