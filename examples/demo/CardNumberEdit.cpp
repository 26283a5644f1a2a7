#include "CardNumberEdit.h"

#include <QRegularExpression>
#include <QRegularExpressionValidator>

using namespace Qt::StringLiterals;

CardNumberEdit::CardNumberEdit(QWidget *parent)
    : QLineEdit(parent)
{
    // Digits, and spaces to group them as they are printed on the card.
    setValidator(new QRegularExpressionValidator(QRegularExpression(u"[0-9 ]{0,23}"_s), this));
    setPlaceholderText(u"1234 5678 9012 3456"_s);
    setInputMethodHints(Qt::ImhDigitsOnly);
}
