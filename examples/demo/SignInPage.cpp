#include "SignInPage.h"

#include "CardNumberEdit.h"

#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

SignInPage::SignInPage(QWidget *parent)
    : QWidget(parent)
{
    auto *title = new QLabel(u"Sign in"_s, this);
    title->setStyleSheet(u"font-size: 24px; font-weight: bold;"_s);

    // Filled in, so that the console shows at once that the private fields are masked.
    auto *userName = new QLineEdit(u"alex.morgan"_s, this);
    auto *password = new QLineEdit(u"correct horse"_s, this);
    password->setEchoMode(QLineEdit::Password);
    // Private on the device, as its echo mode hides the text; and by tag, as the service lists
    // this number among its private tags.
    password->setProperty("vistrelTag", PasswordTag);
    // Private by class: the service lists the class name CardNumberEdit.
    auto *cardNumber = new CardNumberEdit(this);
    cardNumber->setText(u"4111 1111 1111 1111"_s);

    auto *form = new QFormLayout;
    form->addRow(u"User name"_s, userName);
    form->addRow(u"Password"_s, password);
    form->addRow(u"Card number"_s, cardNumber);

    auto *signIn = new QPushButton(u"Sign in"_s, this);
    signIn->setObjectName(u"signInButton"_s);
    signIn->setMinimumSize(200, 56);
    // A flat, solid fill without border or rounded corners: the button is one block of colour.
    signIn->setStyleSheet(
        u"QPushButton { background-color: %1; color: white; border: none;"
        " font-size: 20px; font-weight: bold; }"_s.arg(QLatin1StringView(SignInColor)));
    connect(signIn, &QPushButton::clicked, this, &SignInPage::signedIn);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 24, 24, 24);
    layout->setSpacing(16);
    layout->addWidget(title);
    layout->addLayout(form);
    // At the foot of the page, as on a phone. There it also stays clear of the second black box
    // the kit paints for each private field (the field's frame mapped from the field itself,
    // which lands below and to the right of the field).
    layout->addStretch();
    layout->addWidget(signIn);
}
