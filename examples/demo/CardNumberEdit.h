#pragma once

#include <QLineEdit>

/// A line edit for a payment card number. It is its own class, with Q_OBJECT, so that the service
/// can declare it private by class name: the kit then blacks it out of every screenshot.
class CardNumberEdit : public QLineEdit
{
    Q_OBJECT
public:
    explicit CardNumberEdit(QWidget *parent = nullptr);
};
