#pragma once

#include <QWidget>

/// The sign-in screen: user name, a password field private by tag and a card number field private
/// by class. Signing in only changes the page; there is no account behind it.
class SignInPage : public QWidget
{
    Q_OBJECT
public:
    /// The tag the password field carries; the service lists it among its private tags.
    static constexpr int PasswordTag = 7;
    /// The sign-in button's fill: a colour nothing else on screen uses, so that the button is
    /// easy to find in the streamed image.
    static constexpr const char *SignInColor = "#1f6feb";

    explicit SignInPage(QWidget *parent = nullptr);

Q_SIGNALS:
    void signedIn();
};
